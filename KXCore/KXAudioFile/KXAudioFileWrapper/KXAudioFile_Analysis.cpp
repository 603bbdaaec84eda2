#include <algorithm>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXAudioFile/KXChannels/KXAnalysisChunk.h"
#include "KXAudioFile/KXChannels/KXWaveformCache.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXResourceFile.h"

namespace {

constexpr std::uint32_t kAnalHeaderSize = 12;
constexpr std::int16_t kAnalysisResourceID = 1000;

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
            auto fork = KXResourceFile::resourceFileWithPath(target.path, KXResourceFile::Mode::readWrite);
            if (fork && fork->addResource(std::make_shared<KXResource>(KXFourCC("KXAn"), kAnalysisResourceID,
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
    if (!chunk->appendToFile(*file) || !file->synchronize()) return false;
    if (isCAF(format_)) return true;  // a CAF file has no container size
    const KXByteOrder order = blockSizeByteOrder_ == 2 ? KXByteOrder::big : KXByteOrder::little;
    return file->writeIntValueToPosition(std::uint32_t(file->length() - 8), 4, order);
}
