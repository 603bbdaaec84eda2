// The edit operations against a model: each channel of the edited file as the list of what plays
// at each frame (a source frame, a silence block, or nothing). Random sequences of operations on
// a file whose every sample names its own frame must render exactly what the model says.

#include <gtest/gtest.h>

#include <random>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "support/KXTestSupport.h"

namespace {

constexpr std::int64_t kSilence = -1, kNothing = -2;
using Model = std::vector<std::vector<std::int64_t>>;

float sampleOf(std::int64_t frame) { return frame >= 0 ? float(frame) / 65536.0f : 0.0f; }

// What plays in [from, from + length) of one channel, the frames past its end playing nothing.
std::vector<std::int64_t> slice(const std::vector<std::int64_t>& channel, std::uint64_t from, std::uint64_t length) {
    std::vector<std::int64_t> out;
    for (std::uint64_t f = from; f < from + length && f < channel.size(); ++f) out.push_back(channel[f]);
    return out;
}

void insertAt(std::vector<std::int64_t>& channel, std::uint64_t at, const std::vector<std::int64_t>& what) {
    if (at > channel.size()) channel.resize(at, kNothing);
    channel.insert(channel.begin() + std::ptrdiff_t(at), what.begin(), what.end());
}

void trim(std::vector<std::int64_t>& channel) {
    while (!channel.empty() && channel.back() == kNothing) channel.pop_back();
}

void expectRendersModel(KXAudioFile& file, const Model& model, const std::string& step) {
    std::size_t length = 0;
    for (const auto& channel : model) length = std::max(length, channel.size());
    ASSERT_EQ(file.frames(), length) << step;
    const auto rendered = KXTestSamples::samplesOf(file);
    for (std::size_t c = 0; c < model.size(); ++c)
        for (std::size_t f = 0; f < length; ++f)
            ASSERT_EQ(rendered[c][f], sampleOf(f < model[c].size() ? model[c][f] : kNothing))
                << step << ": channel " << c << " frame " << f;
}

}  // namespace

TEST(KXAudioFileEditingModel, RandomOperationsRenderWhatTheModelSays) {
    KXTemporaryFolder folder;
    constexpr std::uint32_t kFrames = 40000;
    const std::string path = KXTestSamples::writeSignalFile(folder, "frames.wav", 2, 44100, kFrames, true,
                                                            [](std::uint32_t f, std::uint32_t) { return sampleOf(f); });
    for (std::uint32_t seed = 1; seed <= 8; ++seed) {
        auto file = KXAudioFile::audioFileWithPath(path);
        ASSERT_TRUE(file);
        Model model(2);
        for (auto& channel : model)
            for (std::int64_t f = 0; f < kFrames; ++f) channel.push_back(f);
        std::mt19937 random(seed);
        const auto below = [&](std::uint64_t n) { return std::uint32_t(random() % std::max<std::uint64_t>(n, 1)); };
        for (int step = 0; step < 80; ++step) {
            std::size_t size = std::max(model[0].size(), model[1].size());
            const KXSampleRange range{below(size + 200), 1 + below(3000)};
            const std::uint32_t which = below(3);
            const KXIndexSet channels = which == 2 ? KXIndexSet{0, 1} : KXIndexSet{which};
            std::vector<std::size_t> selected;
            channels.enumerateIndexes([&](std::uint32_t c) { return selected.push_back(c), true; });
            const std::uint32_t op = below(8);
            std::string name;
            switch (op) {
            case 0:
                name = "delete";
                file->deleteRange(range, channels);
                for (std::size_t c : selected)
                    if (range.location < model[c].size())
                        model[c].erase(model[c].begin() + range.location,
                                       model[c].begin() + std::min<std::size_t>(range.end(), model[c].size()));
                break;
            case 1:
                name = "remove";
                file->removeRange(range, channels);
                for (std::size_t c : selected)
                    for (std::size_t f = range.location; f < range.end() && f < model[c].size(); ++f) model[c][f] = kNothing;
                break;
            case 2:
            case 3: {
                const bool block = op == 2;
                name = block ? "silence" : "gap";
                file->insertSilence(range, channels, block);
                for (std::size_t c : selected) {
                    if (!block && range.location >= model[c].size()) continue;
                    insertAt(model[c], range.location, std::vector<std::int64_t>(range.length, block ? kSilence : kNothing));
                }
                break;
            }
            case 4:
                name = "crop";
                file->cropRange(range, channels, false);
                for (std::size_t c : selected) model[c] = slice(model[c], range.location, range.length);
                break;
            case 5:
                name = "splice";
                file->spliceRange(range, channels, "Piece");
                break;
            case 6: {
                name = "copy and paste";
                file->copyFrom(range, channels);
                std::vector<std::vector<std::int64_t>> copied;
                std::size_t length = 0;
                for (std::size_t c : selected) {
                    copied.push_back(slice(model[c], range.location, range.length));
                    trim(copied.back());
                    length = std::max(length, copied.back().size());
                }
                const std::uint32_t at = below(size + 100);
                // Nothing copied pastes nothing.
                ASSERT_TRUE(file->pasteFromPasteboard({at, 0}, channels, false));
                for (std::size_t k = 0; k < selected.size(); ++k) {
                    copied[k].resize(length, kNothing);
                    insertAt(model[selected[k]], at, copied[k]);
                }
                break;
            }
            case 7: {
                name = "collapse";
                file->collapseRange(range, channels);
                // Frames where none of the channels plays anything go, in every channel given.
                for (std::size_t f = std::min<std::size_t>(range.end(), size); f-- > range.location;) {
                    bool empty = true;
                    for (std::size_t c : selected) empty = empty && (f >= model[c].size() || model[c][f] == kNothing);
                    if (!empty) continue;
                    for (std::size_t c : selected)
                        if (f < model[c].size()) model[c].erase(model[c].begin() + std::ptrdiff_t(f));
                }
                break;
            }
            }
            for (auto& channel : model) trim(channel);
            expectRendersModel(*file, model,
                               "seed " + std::to_string(seed) + " step " + std::to_string(step) + " " + name + " " +
                                   range.string() + " channels " + std::to_string(which));
            if (HasFatalFailure()) return;
        }
        // Merging every channel changes nothing that plays.
        ASSERT_TRUE(file->mergeEditList(*file->editList()->copy()));
        expectRendersModel(*file, model, "seed " + std::to_string(seed) + " merge");
        file->removeTempFiles();
    }
}
