// kxaudio process IN OUT [--start S] [--end S] [--channels LIST] [operations …] [OUT's options]
//
// Runs the operations in the order given, each on what the one before made, and writes the last
// result to OUT (as convert does: its format, labels and metadata; dithered when OUT's integers
// are coarser than the processed samples, unless --no-dither).
//
// --start, --end and --channels choose what each operation works on. The operations that keep
// the length and the channels (gain, fades, invert, dc, balance, reverse, pitch) leave the rest of
// the file as it was; the others (sum, difference, matrix, rate, stretch) make their result from
// the selection alone, and snip removes the selected time from every channel; the operations
// after one of those work on the whole of its result. With no operation the selection is copied. Labels follow: mirrored by reverse, scaled by stretch, moved up by
// snip, and cut to the selection where only the selection is kept; seconds stay seconds through
// a rate conversion.

#include <algorithm>
#include <cmath>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLabelList.h"
#include "Output.h"

namespace kxaudio {
namespace {

struct Options : WriteOptions {
    std::string input;
    std::optional<double> start, end;
    std::vector<std::uint32_t> channels, sum, difference;
    double gain = 0, balance = 0, stretch = 1, pitch = 0;
    std::string fadeIn, fadeOut, matrix, quality = "very-high";
    std::uint32_t rate = 0;
    bool average = false, invert = false, dc = false, reverse = false, snip = false;
};

// What an operation works on in the file in hand: frames [from, to) of `channels`.
struct Selection {
    std::uint64_t from = 0, to = 0;
    KXIndexSet channels;
    double rate = 0;
    KXRange range() const { return KXRange::rangeWithStart(double(from) / rate, double(to) / rate); }
    KXProcessSelection instructions() const {
        KXProcessSelection selection;
        selection.start = std::uint32_t(from), selection.end = std::uint32_t(to), selection.channels = channels;
        return selection;
    }
};

// One operation. `run` writes what it makes into a writer whose rate and channels are the file's
// (an operation that changes them sets them); an in-place operation writes only `changes` of the
// selection's channels, which then replace those frames of the file.
struct Operation {
    std::string title;
    bool inPlace = true;
    std::function<Selection(const Selection&)> changes = [](const Selection& selection) { return selection; };
    std::function<std::int32_t(KXAudioFile&, KXAudioFileWriter&, const Selection&, KXError*)> run;
    // How the labels (seconds) follow, given the selection.
    std::function<void(KXLabelList&, const Selection&)> labels = [](KXLabelList&, const Selection&) {};
};

void cutToSelection(KXLabelList& list, const Selection& selection) {
    const KXRange range = selection.range();
    list.cropRange(range);
    list.shiftRange(KXRange::rangeWithLocation(-1.0, -range.start()));
}

// "S[:curve]": the fade's seconds and its curve (0.5, a straight line, when not given).
std::optional<std::pair<double, float>> fadeOf(const std::string& text) {
    std::istringstream in(text);
    double seconds = 0;
    float curve = 0.5f;
    char colon = 0;
    if (!(in >> seconds) || seconds < 0) return std::nullopt;
    if (in >> colon && (colon != ':' || !(in >> curve) || curve < 0 || curve > 1)) return std::nullopt;
    return std::make_pair(seconds, curve);
}

// "a,b;c,d" (or "a,b/c,d"): one row of weights per output channel.
std::optional<KXChannelMatrix> matrixOf(const std::string& text) {
    KXChannelMatrix matrix(1);
    std::string number;
    const auto take = [&] {
        if (number.empty()) return false;
        std::size_t used = 0;
        try {
            matrix.back().push_back(std::stof(number, &used));
        } catch (...) {
            return false;
        }
        number.clear();
        return used > 0;
    };
    for (char c : text + ";") {
        if (c == ',' || c == ';' || c == '/') {
            if (!take()) return std::nullopt;
            if (c != ',') matrix.emplace_back();
        } else if (c != ' ') {
            number += c;
        }
    }
    matrix.pop_back();
    if (matrix.empty() || matrix.size() > 64) return std::nullopt;
    return matrix;
}

KXIndexSet channelSetOf(const std::vector<std::uint32_t>& fromOne) {
    KXIndexSet set;
    for (std::uint32_t channel : fromOne) set.addIndex(channel - 1);
    return set;
}

// The operations the command line asks for, in its order; nullopt after reporting a bad value.
std::optional<std::vector<Operation>> operationsOf(const CLI::App& command, const Options& options) {
    std::vector<Operation> operations;
    std::vector<const CLI::Option*> seen;
    for (const CLI::Option* option : command.parse_order()) {
        if (std::find(seen.begin(), seen.end(), option) != seen.end()) continue;
        seen.push_back(option);
        const std::string name = option->get_name();
        Operation operation;
        operation.title = name.substr(2);
        if (name == "--gain") {
            const auto gain = float(std::pow(10.0, options.gain / 20.0));
            operation.run = [gain](KXAudioFile& file, KXAudioFileWriter& writer, const Selection& s, KXError* error) {
                KXAmplitudeInstructions instructions;
                static_cast<KXProcessSelection&>(instructions) = s.instructions();
                instructions.gain = gain;
                return file.changeAmplitude(instructions, writer, error);
            };
        } else if (name == "--fade-in" || name == "--fade-out") {
            const auto fade = fadeOf(name == "--fade-in" ? options.fadeIn : options.fadeOut);
            if (!fade) {
                std::cerr << "kxaudio: " << name << " takes seconds, and a curve from 0 to 1 after a colon (2.5:0.3)\n";
                return std::nullopt;
            }
            const bool in = name == "--fade-in";
            operation.changes = [fade, in](const Selection& s) {
                Selection faded = s;
                const auto frames = std::min<std::uint64_t>(std::uint64_t(std::llround(fade->first * s.rate)), s.to - s.from);
                if (in) faded.to = s.from + frames;
                else faded.from = s.to - frames;
                return faded;
            };
            operation.run = [fade, in](KXAudioFile& file, KXAudioFileWriter& writer, const Selection& s, KXError* error) {
                return file.fade(writer, std::uint32_t(s.from), std::uint32_t(s.to), s.channels, in ? 0 : 1, fade->second, error);
            };
        } else if (name == "--invert" || name == "--dc") {
            const bool invert = name == "--invert";
            operation.run = [invert](KXAudioFile& file, KXAudioFileWriter& writer, const Selection& s, KXError* error) {
                const auto from = std::uint32_t(s.from), to = std::uint32_t(s.to);
                return invert ? file.invertPhase(writer, from, to, s.channels, error)
                              : file.filterDCOffset(writer, from, to, s.channels, error);
            };
        } else if (name == "--balance") {
            const auto balance = float(options.balance);
            operation.run = [balance](KXAudioFile& file, KXAudioFileWriter& writer, const Selection& s, KXError* error) {
                return file.changeBalance(balance, s.instructions(), writer, error);
            };
        } else if (name == "--reverse") {
            operation.run = [](KXAudioFile& file, KXAudioFileWriter& writer, const Selection& s, KXError* error) {
                return file.reverse(s.instructions(), writer, error);
            };
            operation.labels = [](KXLabelList& list, const Selection& s) { list.reverseRange(s.range()); };
        } else if (name == "--pitch" || name == "--stretch") {
            KXStretchInstructions instructions;
            if (name == "--pitch") instructions.semitones = options.pitch;
            else instructions.factor = options.stretch, operation.inPlace = false;
            operation.run = [instructions](KXAudioFile& file, KXAudioFileWriter& writer, const Selection& s,
                                           KXError* error) mutable {
                static_cast<KXProcessSelection&>(instructions) = s.instructions();
                return file.stretch(instructions, writer, error);
            };
            if (name == "--stretch")
                operation.labels = [factor = options.stretch](KXLabelList& list, const Selection& s) {
                    cutToSelection(list, s);
                    list.scale(float(factor));
                };
        } else if (name == "--sum" || name == "--difference") {
            const KXIndexSet channels = channelSetOf(name == "--sum" ? options.sum : options.difference);
            const bool sum = name == "--sum", average = options.average;
            operation.inPlace = false;
            operation.run = [=](KXAudioFile& file, KXAudioFileWriter& writer, const Selection& s, KXError* error) {
                writer.setChannels(1);
                const KXSampleRange range{std::uint32_t(s.from), std::uint32_t(s.to - s.from)};
                return sum ? file.sumChannels(channels, average, range, writer, error)
                           : file.subtractChannels(channels, average, range, writer, error);
            };
            operation.labels = cutToSelection;
        } else if (name == "--matrix") {
            const auto matrix = matrixOf(options.matrix);
            if (!matrix) {
                std::cerr << "kxaudio: --matrix takes rows of weights, one row per output channel: \"0,1;1,0\" swaps two "
                             "channels, \"0.5,0.5\" mixes them down\n";
                return std::nullopt;
            }
            operation.inPlace = false;
            operation.run = [matrix](KXAudioFile& file, KXAudioFileWriter& writer, const Selection& s, KXError* error) {
                return file.mixChannels(*matrix, s.instructions(), writer, error);
            };
            operation.labels = cutToSelection;
        } else if (name == "--rate") {
            KXRateInstructions instructions;
            instructions.rate = options.rate;
            const char* qualities[] = {"quick", "low", "medium", "high", "very-high"};
            instructions.quality = KXRateInstructions::Quality(
                std::find(std::begin(qualities), std::end(qualities), options.quality) - std::begin(qualities));
            operation.inPlace = false;
            operation.run = [instructions](KXAudioFile& file, KXAudioFileWriter& writer, const Selection& s,
                                           KXError* error) mutable {
                static_cast<KXProcessSelection&>(instructions) = s.instructions();
                return file.convertRate(instructions, writer, error);
            };
            operation.labels = cutToSelection;
        } else if (name == "--snip") {
            operation.inPlace = false;
            operation.run = [](KXAudioFile& file, KXAudioFileWriter& writer, const Selection& s, KXError* error) {
                KXFrameSelection cut;
                cut.start = std::uint32_t(s.from), cut.end = std::uint32_t(s.to);
                return file.snip(cut, writer, error);
            };
            operation.labels = [](KXLabelList& list, const Selection& s) {
                const KXRange range = s.range();
                list.removeRange(range);
                list.shiftRange(KXRange::rangeWithLocation(range.start(), -range.length()));
            };
        } else {
            continue;  // a selection or output option
        }
        operations.push_back(std::move(operation));
    }
    return operations;
}

// The selection the options make in `file`; everything, once an operation has reshaped the file.
Selection selectionOf(const KXAudioFile& file, const Options& options, bool whole) {
    Selection selection;
    selection.rate = file.rate();
    if (whole) {
        selection.to = file.frames();
        selection.channels = file.channelSet();
        return selection;
    }
    const auto frameAt = [&](double seconds) {
        return std::min<std::uint64_t>(std::uint64_t(std::llround(std::max(seconds, 0.0) * file.rate())), file.frames());
    };
    selection.from = frameAt(options.start.value_or(0));
    selection.to = std::max(selection.from, options.end ? frameAt(*options.end) : file.frames());
    selection.channels = options.channels.empty() ? file.channelSet() : channelSetOf(options.channels);
    KXIndexSet present;
    for (std::uint32_t channel : selection.channels.indexes())
        if (channel < file.numberOfChannels()) present.addIndex(channel);
    selection.channels = present;
    return selection;
}

// The steps' files: float WAVE files beside OUT, removed when the command ends.
class Intermediates {
public:
    explicit Intermediates(std::string directory) : directory_(std::move(directory)) {}
    ~Intermediates() {
        for (const auto& writer : writers_) writer->deleteFiles();
    }
    std::shared_ptr<KXAudioFileWriter> writerFor(const KXAudioFile& file) {
        auto writer = KXAudioFileWriter::writer();
        writer->setFormat(KXFourCC("WAVE"));
        writer->setDepth(32);
        writer->setIsFloatingPoint(true);
        writer->setRate(std::int32_t(file.rate()));
        writer->setChannels(std::int32_t(file.numberOfChannels()));
        writer->setWriteAnalysis(false);
        writer->setTempDirectory(directory_);
        writers_.push_back(writer);
        return writer;
    }

private:
    std::string directory_;
    std::vector<std::shared_ptr<KXAudioFileWriter>> writers_;
};

// The file with `changed` (frames `s.from` … of the selected channels) put in place of those
// frames, into `writer`.
std::int32_t splice(KXAudioFile& file, KXAudioFile& changed, const Selection& s, KXAudioFileWriter& writer,
                    KXError* error) {
    writer.setChannels(std::int32_t(file.numberOfChannels()));
    if (!writer.beginWrite(error)) return KXAudioFile::kProcessFailed;
    const std::vector<std::uint32_t> channels = s.channels.indexes();
    const std::uint32_t block = file.readBufferFrames();
    KXNativeAudioBuffer buffer(file.numberOfChannels(), block);
    for (std::uint64_t position = 0; position < file.frames();) {
        buffer.setFrames(std::uint32_t(std::min<std::uint64_t>(file.frames() - position, block)));
        const std::int32_t read = file.readSamplesToBuffer(buffer, std::int64_t(position));
        if (read <= 0) break;
        const std::uint64_t end = position + std::uint64_t(read);
        const std::uint64_t first = std::max(position, s.from), last = std::min(end, s.to);
        for (std::size_t k = 0; k < channels.size(); ++k)
            for (std::uint64_t frame = first; frame < last;) {
                std::int32_t size = std::int32_t(last - frame);
                changed.readSamplesToBuffer(buffer.channel(channels[k]) + (frame - position), std::int64_t(frame - s.from),
                                            size, std::uint32_t(k));
                if (size <= 0) break;
                frame += std::uint64_t(size);
            }
        buffer.setFrames(std::uint32_t(read));
        writer.writeBuffer(buffer);
        position = end;
    }
    return writer.endWrite(error) ? KXProgressDelegate::kGoOn : KXAudioFile::kProcessFailed;
}

bool isWhole(const Selection& s, const KXAudioFile& file) {
    return s.from == 0 && s.to == file.frames() && s.channels == file.channelSet();
}

}  // namespace

void addProcessCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("process", "Change a file's samples: gain, fades, phase, channels, rate, tempo");
    addExample(*command, "kxaudio process take.wav take-48k.wav --gain -3 --fade-out 2 --rate 48000");
    auto options = std::make_shared<Options>();
    command->add_option("IN", options->input, "Audio file to read")->required();
    command->add_option("OUT", options->output, "Audio file to write")->required();
    command->add_option("--start", options->start, "Start of the selection, seconds (default 0)")->check(CLI::NonNegativeNumber);
    command->add_option("--end", options->end, "End of the selection, seconds (default: the end)")->check(CLI::NonNegativeNumber);
    command->add_option("--channels", options->channels, "Channels of the selection, from 1 (default: all)")
        ->delimiter(',')
        ->check(CLI::PositiveNumber);
    command->add_option("--gain", options->gain, "Change the level by this many dB");
    command->add_option("--fade-in", options->fadeIn, "Fade in over S seconds; S:C gives the curve (0.5 straight, 1 slow start)");
    command->add_option("--fade-out", options->fadeOut, "Fade out over the last S seconds; S:C gives the curve");
    command->add_flag("--invert", options->invert, "Invert the phase");
    command->add_flag("--dc", options->dc, "Remove DC offset (a high-pass filter at about 3 Hz)");
    command->add_option("--sum", options->sum, "Mix these channels (from 1) into one")->delimiter(',')->check(CLI::PositiveNumber);
    command->add_option("--difference", options->difference, "The first channel minus the others, as one channel")
        ->delimiter(',')
        ->check(CLI::PositiveNumber);
    command->add_flag("--average", options->average, "Divide --sum and --difference by the number of channels");
    command->add_option("--rate", options->rate, "Convert to this sample rate (Hz)")->check(CLI::Range(1u, 0x7FFFFFFFu));
    command->add_option("--quality", options->quality, "Rate conversion quality")
        ->check(CLI::IsMember({"quick", "low", "medium", "high", "very-high"}));
    command->add_flag("--reverse", options->reverse, "Play the selection backwards");
    command->add_option("--balance", options->balance, "Balance from -1 (left) to 1 (right)")->check(CLI::Range(-1.0, 1.0));
    command->add_option("--matrix", options->matrix, "Output channels as weighted sums: rows \"a,b;c,d\", one per output");
    command->add_option("--stretch", options->stretch, "Make it this many times as long, keeping the pitch")
        ->check(CLI::Range(0.25, 4.0));
    command->add_option("--pitch", options->pitch, "Shift the pitch by semitones, keeping the length")->check(CLI::Range(-36.0, 36.0));
    command->add_flag("--snip", options->snip, "Remove the selected time (--start … --end) from every channel");
    addWriteOptions(*command, *options);
    command->callback([command, options, &status] {
        std::optional<std::vector<Operation>> operations = operationsOf(*command, *options);
        if (!operations) {
            status = kRefused;
            return;
        }
        KXError error;
        std::shared_ptr<KXAudioFile> current = KXAudioFile::audioFileWithPath(options->input, &error);
        if (!current) {
            status = refuse(error, false, options->input);
            return;
        }
        std::string refusal;
        auto output = writerForOutput(*current, *options, refusal);
        if (!output) {
            std::cerr << "kxaudio: " << refusal << "\n";
            status = kRefused;
            return;
        }
        // With no operation the selection is copied.
        if (operations->empty()) {
            Operation copy;
            copy.title = "copy";
            copy.inPlace = false;
            copy.run = [](KXAudioFile& file, KXAudioFileWriter& writer, const Selection& s, KXError* error) {
                KXAmplitudeInstructions instructions;
                static_cast<KXProcessSelection&>(instructions) = s.instructions();
                return file.changeAmplitude(instructions, writer, error);
            };
            copy.labels = cutToSelection;
            operations->push_back(copy);
        } else {
            // Processed samples are finer than any integer file's: rounding them is dithered.
            output->setSourcePrecision(std::max(output->sourcePrecision(), 24));
        }
        Intermediates intermediates(output->tempDirectory());
        TerminalProgress progress;
        bool reshaped = false;
        for (std::size_t i = 0; i < operations->size(); ++i) {
            const Operation& operation = (*operations)[i];
            const Selection selection = selectionOf(*current, *options, reshaped);
            reshaped = reshaped || !operation.inPlace;
            const bool last = i + 1 == operations->size();
            const bool spliced = operation.inPlace && !isWhole(operation.changes(selection), *current);
            std::shared_ptr<KXAudioFileWriter> writer = last ? output : intermediates.writerFor(*current);
            writer->setRate(std::int32_t(current->rate()));
            writer->setChannels(std::int32_t(current->numberOfChannels()));
            std::shared_ptr<KXAudioFileWriter> target = spliced ? intermediates.writerFor(*current) : writer;
            if (operation.inPlace) target->setChannels(std::int32_t(selection.channels.count()));
            // The labels go with the header, which the output's writer may write as it begins.
            for (const auto& list : std::initializer_list<KXLabelList*>{output->markerList().get(), output->sliceList().get(),
                                                                       output->regionList().get(), output->loopList().get()})
                operation.labels(*list, selection);
            progress.setTitle(operation.title);
            current->setProgressDelegate(&progress);
            std::int32_t result = operation.run(*current, *target, operation.changes(selection), &error);
            current->setProgressDelegate(current.get());
            if (result == KXProgressDelegate::kGoOn && spliced) {
                auto changed = KXAudioFile::audioFileWithPath(target->filePath(), &error);
                result = changed ? splice(*current, *changed, operation.changes(selection), *writer, &error)
                                 : KXAudioFile::kProcessFailed;
            }
            if (result != KXProgressDelegate::kGoOn) {
                if (last) output->deleteFiles();
                status = refuse(error.code() ? error : KXError::posixError(EINVAL, "Processing: " + operation.title), false);
                return;
            }
            if (!last) current = KXAudioFile::audioFileWithPath(writer->filePath(), &error);
            if (!current) {
                status = refuse(error, false);
                return;
            }
        }
        if (!saveOutput(*output, *options, &error)) {
            status = refuse(error, false);
            return;
        }
        for (const std::string& path : output->filePaths()) std::cout << path << "\n";
    });
}

}  // namespace kxaudio
