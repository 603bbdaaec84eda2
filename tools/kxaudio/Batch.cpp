#include "Batch.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <iostream>
#include <mutex>
#include <optional>
#include <thread>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"

namespace kxaudio {
namespace {

// The batch's progress bar on stderr, drawn when stderr is a terminal: the files done and the
// fractions of those under way, as one bar.
class BatchProgress {
  public:
    explicit BatchProgress(std::size_t files) : shown_(isatty(STDERR_FILENO) == 1), fractions_(files, 0.0) {}

    void setFraction(std::size_t file, double fraction) {
        std::lock_guard lock(mutex_);
        fractions_[file] = std::clamp(fraction, 0.0, 1.0);
        drawLocked(false);
    }
    // Runs `print` with the bar cleared, then draws it again.
    template <typename Print>
    void printAbove(Print print) {
        std::lock_guard lock(mutex_);
        if (drawn_) std::cerr << "\r\033[K" << std::flush;
        drawn_ = false;
        print();
        drawLocked(true);
    }
    void finish() {
        std::lock_guard lock(mutex_);
        if (drawn_) std::cerr << "\r\033[K" << std::flush;
        drawn_ = false;
    }

  private:
    void drawLocked(bool force) {
        if (!shown_) return;
        double sum = 0;
        std::size_t done = 0;
        for (double fraction : fractions_) {
            sum += fraction;
            done += fraction >= 1.0;
        }
        const int permille = int(sum / double(fractions_.size()) * 1000.0);
        if (!force && permille == permille_) return;
        permille_ = permille;
        constexpr int kWidth = 30;
        const int filled = permille * kWidth / 1000;
        std::cerr << "\r\033[K[" << std::string(std::size_t(filled), '#')
                  << std::string(std::size_t(kWidth - filled), '-') << "] " << permille / 10 << "%";
        if (fractions_.size() > 1) std::cerr << "  " << done << "/" << fractions_.size() << " files";
        std::cerr << std::flush;
        drawn_ = true;
    }

    const bool shown_;
    std::mutex mutex_;
    std::vector<double> fractions_;
    int permille_ = -1;
    bool drawn_ = false;
};

// One file's share of the bar.
class FileProgress : public KXProgressDelegate {
  public:
    FileProgress(BatchProgress& bar, std::size_t file) : bar_(bar), file_(file) {}
    std::int32_t update(double fraction) override {
        bar_.setFraction(file_, fraction);
        return kGoOn;
    }

  private:
    BatchProgress& bar_;
    std::size_t file_;
};

}  // namespace

void addBatchOptions(CLI::App& command, BatchOptions& options, bool withFiles) {
    if (withFiles) command.add_option("FILE", options.files, "Audio files")->required();
    command.add_flag("--json", options.json, "Print JSON: an array with one entry per file");
    command.add_option("-j,--jobs", options.jobs, "Files worked on at once (default: one per core)")
        ->check(CLI::PositiveNumber);
}

FileReport refusedReport(const std::string& path, const KXError& error) {
    FileReport report;
    report.failed = true;
    report.entry = {{"path", jsonString(path)}, {"error", errorJSON(error, path)}};
    report.err = "kxaudio: " + jsonString(path) + ": " + error.description() + "\n";
    if (const std::string hint = hintFor(error, path); !hint.empty()) report.err += "kxaudio: " + hint + "\n";
    return report;
}

int runBatch(const BatchOptions& options, const FileWork& work) {
    const std::size_t count = options.files.size();
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const std::size_t threads = std::min<std::size_t>(options.jobs ? options.jobs : cores, count);
    BatchProgress bar(count);
    std::vector<std::optional<FileReport>> reports(count);
    std::mutex mutex;
    std::size_t printed = 0;
    bool failed = false;
    Json entries = Json::array();
    std::atomic<std::size_t> next{0};

    const auto finish = [&](std::size_t index, FileReport report) {
        std::lock_guard lock(mutex);
        reports[index] = std::move(report);
        // Reports come out in the files' order: each waits for the ones before it.
        bar.printAbove([&] {
            for (; printed < count && reports[printed]; ++printed) {
                FileReport& done = *reports[printed];
                failed = failed || done.failed;
                if (options.json)
                    entries.push_back(std::move(done.entry));
                else
                    std::cout << done.out << std::flush;
                std::cerr << done.err << std::flush;
                reports[printed].reset();
            }
        });
    };
    const auto worker = [&] {
        for (std::size_t index; (index = next++) < count;) {
            FileProgress progress(bar, index);
            const std::string& path = options.files[index];
            FileReport report;
            try {
                report = work(path, progress);
            } catch (const std::exception& e) {
                report = refusedReport(path, KXAudioFileError::errorWithCode(KXAudioFileErrorUndefined, e.what()));
            }
            if (report.entry.is_null()) report.entry = {{"path", jsonString(path)}};
            bar.setFraction(index, 1.0);
            finish(index, std::move(report));
        }
    };
    if (threads <= 1) {
        worker();
    } else {
        std::vector<std::jthread> pool;
        for (std::size_t i = 0; i < threads; ++i) pool.emplace_back(worker);
    }
    bar.finish();
    if (options.json) std::cout << jsonText(entries) << "\n";
    return failed ? kRefused : 0;
}

}  // namespace kxaudio
