// kxaudio waveform FILE -o OUT.png [--width W] [--height H] [--start S] [--end S]
// [--channels 1,2…] [--json]: a picture of the file's maximum and RMS overviews (one lane per
// channel, the peak envelope light, the RMS dark), or with --json the values per pixel column.
// The overviews come from the file's analysis (made when the file has none); a column covers
// whole 256-frame overview blocks, or, zoomed in further, the block it falls in.

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXChannels/KXWaveform.h"
#include "Output.h"

namespace kxaudio {
namespace {

struct Options {
    std::string file, output;
    std::uint32_t width = 1200, height = 300;
    double start = 0;
    std::optional<double> end;
    std::vector<std::uint32_t> channels;
    bool json = false;
};

struct Columns {
    std::string name;
    std::vector<float> max, rms;
};

std::vector<float> tableOf(KXAudioFile& file, KXWaveform::Type type, std::uint32_t channel) {
    const std::optional<KXData> table = file.waveformOfType(type, channel);
    std::vector<float> values(table ? table->size() / sizeof(float) : 0);
    if (!values.empty()) std::memcpy(values.data(), table->data(), values.size() * sizeof(float));
    return values;
}

// Each column: the largest maximum and the root of the mean square RMS of its blocks.
Columns columnsOf(KXAudioFile& file, std::uint32_t channel, const Options& options, double firstBlock, double blocks) {
    Columns columns{file.channelsList()->channel(channel)->name(), {}, {}};
    const std::vector<float> maxima = tableOf(file, KXWaveform::kMax, channel), rms = tableOf(file, KXWaveform::kRMS, channel);
    const double perColumn = blocks / options.width;
    for (std::uint32_t x = 0; x < options.width; ++x) {
        const auto from = std::size_t(firstBlock + x * perColumn);
        const auto to = std::max(from + 1, std::size_t(firstBlock + (x + 1) * perColumn));
        float peak = 0;
        double squares = 0;
        std::size_t counted = 0;
        for (std::size_t b = from; b < to && b < maxima.size(); ++b) {
            peak = std::max(peak, maxima[b]);
            if (b < rms.size()) squares += double(rms[b]) * rms[b], ++counted;
        }
        columns.max.push_back(peak);
        columns.rms.push_back(counted ? float(std::sqrt(squares / counted)) : 0.0f);
    }
    return columns;
}

bool writePNG(const std::string& path, const std::vector<Columns>& lanes, const Options& options) {
    const std::uint32_t width = options.width, height = options.height;
    std::vector<std::uint8_t> pixels(std::size_t(width) * height * 3, 255);
    const auto paint = [&](std::uint32_t x, std::uint32_t y, const std::uint8_t (&rgb)[3]) {
        std::memcpy(&pixels[(std::size_t(y) * width + x) * 3], rgb, 3);
    };
    static constexpr std::uint8_t kPeak[3] = {120, 160, 220}, kRMS[3] = {30, 70, 150}, kAxis[3] = {200, 200, 200};
    const double laneHeight = double(height) / lanes.size();
    for (std::size_t lane = 0; lane < lanes.size(); ++lane) {
        const double top = lane * laneHeight, middle = top + laneHeight / 2, half = laneHeight / 2 - 1;
        for (std::uint32_t x = 0; x < width; ++x) {
            paint(x, std::min<std::uint32_t>(std::uint32_t(middle), height - 1), kAxis);
            for (const auto& [value, color] : {std::pair{lanes[lane].max[x], &kPeak}, std::pair{lanes[lane].rms[x], &kRMS}}) {
                const double reach = std::min(1.0f, value) * half;
                for (auto y = std::int64_t(std::floor(middle - reach)); y <= std::int64_t(std::ceil(middle + reach)); ++y)
                    if (y >= std::int64_t(top) && y < std::int64_t(top + laneHeight) && y < std::int64_t(height))
                        paint(x, std::uint32_t(y), *color);
            }
        }
    }
    std::FILE* out = std::fopen(path.c_str(), "wb");
    if (!out) return false;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    volatile bool written = false;  // set after setjmp: kept in memory
    if (png && info && setjmp(png_jmpbuf(png)) == 0) {
        png_init_io(png, out);
        png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                     PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png, info);
        for (std::uint32_t y = 0; y < height; ++y) png_write_row(png, &pixels[std::size_t(y) * width * 3]);
        png_write_end(png, nullptr);
        written = true;
    }
    png_destroy_write_struct(&png, &info);
    return std::fclose(out) == 0 && written;
}

}  // namespace

void addWaveformCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("waveform", "Draw a file's peak and RMS overviews as a PNG picture");
    addExample(*command, "kxaudio waveform take.wav -o take.png --width 1200 --height 300");
    auto options = std::make_shared<Options>();
    command->add_option("FILE", options->file, "An audio file")->required();
    command->add_option("-o,--output", options->output, "The PNG file to write");
    command->add_option("--width", options->width, "Pixels (default 1200)")->check(CLI::Range(1u, 20000u));
    command->add_option("--height", options->height, "Pixels (default 300)")->check(CLI::Range(1u, 20000u));
    command->add_option("--start", options->start, "Start, seconds")->check(CLI::NonNegativeNumber);
    command->add_option("--end", options->end, "End, seconds")->check(CLI::NonNegativeNumber);
    command->add_option("--channels", options->channels, "Channels, from 1 (default: all)")
        ->delimiter(',')
        ->check(CLI::PositiveNumber);
    command->add_flag("--json", options->json, "Print the values per pixel column instead of drawing");
    command->callback([options, &status] {
        if (!options->json && options->output.empty()) {
            std::cerr << "kxaudio: waveform: give -o OUT.png, or --json\n";
            status = kRefused;
            return;
        }
        KXError error;
        auto file = KXAudioFile::audioFileWithPath(options->file, &error);
        if (!file) {
            status = refuse(error, options->json, options->file);
            return;
        }
        TerminalProgress progress;
        file->setProgressDelegate(&progress);
        const double rate = file->rate(), length = file->frames() / rate;
        const double end = std::min(options->end.value_or(length), length), start = std::min(options->start, end);
        const double firstBlock = start * rate / KXWaveform::kSamplesPerEntry;
        const double blocks = std::max((end - start) * rate / KXWaveform::kSamplesPerEntry, 1.0);
        std::vector<std::uint32_t> channels = options->channels;
        if (channels.empty())
            for (std::uint32_t c = 1; c <= file->numberOfChannels(); ++c) channels.push_back(c);
        std::vector<Columns> lanes;
        for (std::uint32_t channel : channels)
            if (channel <= file->numberOfChannels()) lanes.push_back(columnsOf(*file, channel - 1, *options, firstBlock, blocks));
        file->setProgressDelegate(nullptr);
        if (lanes.empty()) {
            std::cerr << "kxaudio: waveform: the file has none of those channels\n";
            status = kRefused;
            return;
        }
        if (options->json) {
            Json result = {{"path", jsonString(options->file)}, {"start", start}, {"end", end}, {"width", options->width}};
            Json all = Json::array();
            for (const Columns& lane : lanes) all.push_back({{"name", lane.name}, {"max", lane.max}, {"rms", lane.rms}});
            result["channels"] = all;
            std::cout << jsonText(result) << "\n";
            return;
        }
        if (!writePNG(options->output, lanes, *options)) {
            std::cerr << "kxaudio: " << jsonString(options->output) << ": the picture could not be written\n";
            status = kRefused;
            return;
        }
        std::cout << options->output << "\n";
    });
}

}  // namespace kxaudio
