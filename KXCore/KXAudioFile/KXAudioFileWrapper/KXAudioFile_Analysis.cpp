#include <algorithm>
#include <cmath>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXAudioFile/KXChannels/KXAnalysisChunk.h"
#include "KXAudioFile/KXChannels/KXWaveformCache.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXResourceFile.h"

namespace {

constexpr std::uint32_t kAnalHeaderSize = 12;

// The formats whose files take an appended 'KXAn' chunk.
constexpr std::uint32_t kChunkFormats[] = {KXFourCC("AIFF"), KXFourCC("APLL"), KXFourCC("ACID"),
                                           KXFourCC("RCY "), KXFourCC("REX1"), KXFourCC("WAVE")};

bool takesChunk(std::uint32_t format) {
    return std::find(std::begin(kChunkFormats), std::end(kChunkFormats), format) != std::end(kChunkFormats);
}
bool isCAF(std::uint32_t format) { return format == KXFourCC("CAFF") || format == KXFourCC("caff"); }
bool isSoundDesigner(std::uint32_t format) { return format == KXFourCC("SDII") || format == KXFourCC("SFIL"); }

}  // namespace

// --- Reading

void KXAudioFile::parseAnalysis(KXChunkList& chunkList) {
    if (chunkList.chunkOfType(KXFourCC("KXAn"))) parseKXAnFromList(&chunkList);
    else if (chunkList.chunkOfType(KXFourCC("anal"))) parseAnalFromList(chunkList);
    else if (KXWaveformCache::isEnabled()) parseKXAnFromList(nullptr);
}

void KXAudioFile::parseKXAnFromList(KXChunkList* chunkList) {
    const std::uint32_t sources = isInterleaved_ ? 1 : numberOfChannels_;
    bool bigEndian = true;
    for (std::uint32_t i = 0; i < sources; ++i) {
        std::optional<KXData> contents;
        if (chunkList) {
            if (auto chunk = chunkList->chunkOfType(KXFourCC("KXAn"), i)) contents = chunk->data();
            chunkList->usedChunkOfType(KXFourCC("KXAn"));
        }
        if (!contents && KXWaveformCache::isEnabled()) {
            if (auto path = pathForChannel(i)) contents = KXWaveformCache::sharedInstance().entryForPath(*path);
        }
        if (!contents || contents->empty()) {
            channelsList_->removeAnalysis();
            return;
        }
        // Contents that do not unarchive give no channel states.
        const auto tablesBigEndian = KXAnalysisChunk::applyContents(*channelsList_, *contents, i, i == 0);
        if (i == 0 && tablesBigEndian) bigEndian = *tablesBigEndian;
    }
    if (bigEndian) KXAnalysisChunk::tablesFromBigEndian(*channelsList_);
}

void KXAudioFile::parseKXAnChunk(const KXChunk& chunk) {
    if (chunk.data().empty()) {
        channelsList_->removeAnalysis();
        return;
    }
    const auto bigEndian = KXAnalysisChunk::applyContents(*channelsList_, chunk.data(), 0, true);
    if (bigEndian.value_or(false)) KXAnalysisChunk::tablesFromBigEndian(*channelsList_);
}

void KXAudioFile::parseAnalChunk(const KXChunk& chunk) {
    KXAnalysisChunk::applyInterleavedAnal(*channelsList_, chunk);
    channelsList_->setDifference(chunk.floatValueAtByte(4));
    KXAnalysisChunk::tablesFromBigEndian(*channelsList_);  // 'anal' tables are always big-endian
}

void KXAudioFile::parseAnalFromList(KXChunkList& chunkList) {
    auto first = chunkList.chunkOfType(KXFourCC("anal"));
    if (isInterleaved_ || numberOfChannels_ == 1) {
        parseAnalChunk(*first);
        return;
    }
    // One chunk per channel file; every table takes the first chunk's length (kept as it is).
    const std::uint32_t tableLength =
        first->data().size() > kAnalHeaderSize ? std::uint32_t(first->data().size() - kAnalHeaderSize) : 0;
    for (std::uint32_t c = 0; c < numberOfChannels_; ++c) {
        const auto path = pathForChannel(c);
        auto chunk = path ? chunkOfTypeAtPath(KXFourCC("anal"), *path) : nullptr;
        auto channel = channelsList_->channel(c);
        if (!chunk || !channel) {
            channelsList_->removeAnalysis();
            break;
        }
        channel->setMax(chunk->floatValueAtByte(0));
        channel->setClipped(chunk->intValueAtByte(8));
        channel->addWaveform(KXWaveform::waveformWithTable(
            KXWaveform::kMax, chunk->dataAtByte(kAnalHeaderSize, tableLength).value_or(KXData())));
    }
    channelsList_->setDifference(first->floatValueAtByte(4));
    KXAnalysisChunk::tablesFromBigEndian(*channelsList_);
}

// --- Writing

KXAudioFile::KXAnalysisPlace KXAudioFile::writeAnalysisHeader() {
    if (!filename_) return KXAnalysisPlace::nowhere;
    struct Target {
        std::string path;
        KXIndexSet channels;
    };
    std::vector<Target> targets;
    const std::uint32_t channels = channelsList_->count();
    if (isInterleaved_ || channels <= 1) {
        targets.push_back({path(), KXIndexSet::indexSetWithIndexesInRange(0, channels)});
    } else {
        for (std::uint32_t c = 0; c < channels; ++c)
            if (auto channelPath = pathForChannel(c)) targets.push_back({*channelPath, KXIndexSet{c}});
    }

    KXAnalysisPlace place = KXAnalysisPlace::nowhere;
    for (const Target& target : targets) {
        const KXData contents = KXAnalysisChunk::contentsForChannels(*channelsList_, target.channels);
        place = KXAnalysisPlace::cache;
        if ((takesChunk(format_) || isCAF(format_)) && !KXWaveformCache::isExclusive()) {
            if (appendAnalysisChunk(target.path, contents)) place = KXAnalysisPlace::file;
        } else if (isSoundDesigner(format_)) {
            // A file without a resource fork gets one.
            auto fork = KXResourceFile::createResourceFileAtPath(target.path);
            if (fork && fork->addResource(std::make_shared<KXResource>(KXFourCC("KXAn"), KXAnalysisChunk::kResourceID,
                                                                       std::nullopt, contents)))
                place = KXAnalysisPlace::resourceFork;
        }
        if (place == KXAnalysisPlace::cache) KXWaveformCache::sharedInstance().addEntry(contents, target.path);
    }
    return place;
}

bool KXAudioFile::appendAnalysisChunk(const std::string& path, const KXData& contents) {
    auto file = KXFile::fileWithPath(path, KXFile::Mode::readWrite);
    if (!file) return false;
    auto chunk = KXChunk::chunk();
    chunk->setFormat(format_);
    chunk->mutableData() = contents;
    std::shared_ptr<KXChunk> earlier;
    if (isCAF(format_)) {
        chunk->setType(KXFourCC("uuid"));
        chunk->setUUID(KXUUID::cafAnalysisUUID());
        if (auto chunks = chunksAtPath(path)) earlier = chunkWithUUID(KXUUID::cafAnalysisUUID(), *chunks);
    } else {
        chunk->setType(KXFourCC("KXAn"));
        earlier = chunkOfTypeAtPath(KXFourCC("KXAn"), path);
    }
    // An earlier analysis becomes 'JUNK', so that readers, which take the first, find this one.
    if (earlier && !earlier->removeFromFile(*file)) return false;
    if (!chunk->appendToFile(*file)) return false;
    // An odd chunk of an IFF/RIFF file is followed by a pad byte (CAF chunks are not padded).
    const std::uint8_t pad = 0;
    if (!isCAF(format_) && contents.size() % 2 == 1 && !file->writeBytes(&pad, 1)) return false;
    if (!file->synchronize()) return false;
    if (isCAF(format_)) return true;  // a CAF file has no container size
    const KXByteOrder order = KXByteOrderFromValue(std::uint32_t(blockSizeByteOrder_));
    return file->writeIntValueToPosition(std::uint32_t(file->length() - 8), 4, order);
}

// --- The analysis pass

bool KXAudioFile::analyzeRange(KXRange range, const KXIndexSet& wanted) {
    if (range.length() == 0 || wanted.empty()) return true;
    range.setRate(rate_);
    const std::uint64_t first = range.sampleStart(), last = range.sampleEnd();
    // Whole 256-frame blocks, in single precision as the overviews count them.
    const double start = std::floor(float(first) / 256.0f) * 256.0;
    const double end = std::min(std::ceil(float(last) / 256.0f) * 256.0, 4294967295.0);
    const KXSampleRange whole{0, std::uint32_t(std::min<std::uint64_t>(editList_->range().end(), 0xFFFFFFFFu))};
    const KXSampleRange frames =
        KXSampleRange{std::uint32_t(start), std::uint32_t(std::max(end - start, 0.0))}.intersection(whole);
    KXIndexSet channels;
    wanted.enumerateIndexes([&](std::uint32_t c) {
        if (c < numberOfChannels_) channels.addIndex(c);
        return c < numberOfChannels_;
    });
    const bool partial = frames != whole || channels.count() != numberOfChannels_;

    KXNativeAudioBuffer buffer(numberOfChannels_, std::min<std::uint32_t>(readBufferFrames(), std::max<std::uint32_t>(frames.length, 1)));
    buffer.setEnabledChannels(channels);
    progressDelegate_->setTitle("Analyzing");
    for (const auto& channel : channelsList_->list())
        for (const auto& waveform : channel->waveforms()) waveform->setSampleLength(frames_);
    channelsList_->beginAnalysis(partial);
    progressDelegate_->reset();
    for (std::uint64_t position = frames.location; position < frames.end();) {
        buffer.setFrames(std::uint32_t(std::min<std::uint64_t>(buffer.capacity(), frames.end() - position)));
        const std::int32_t read = readSamplesToBuffer(buffer, std::int64_t(position));
        if (read <= 0) break;
        buffer.setFrames(std::uint32_t(read));
        buffer.setRange({std::uint32_t(position), std::uint32_t(read)});
        position += std::uint32_t(read);
        channelsList_->analyzeBuffer(buffer);
        if (progressDelegate_->update(double(position - frames.location) / double(frames.length)) !=
            KXProgressDelegate::kGoOn) {
            channelsList_->removeAnalysis();
            return false;
        }
    }
    channelsList_->endAnalysis();
    return true;
}

bool KXAudioFile::analyze(bool write) {
    if (channelsList_->analysisState() == 1 && channelsList_->count() > 0) return true;
    if (!analyzeRange(KXRange::rangeWithAllTime(), channelSet())) return false;
    if (write) writeAnalysisHeader();
    return true;
}

std::optional<KXData> KXAudioFile::waveformOfType(std::int32_t type, std::uint32_t channel) {
    if (channel >= numberOfChannels_) return std::nullopt;
    const auto table = [&]() -> std::optional<KXData> {
        const auto entry = channelsList_->channel(channel);
        const auto waveform = entry ? entry->waveformForType(type) : nullptr;
        return waveform ? waveform->table() : std::nullopt;
    };
    if (auto found = table()) return found;
    analyzeRange(KXRange::rangeWithAllTime(), channelSet());
    progressDelegate_->close();
    return table();
}
