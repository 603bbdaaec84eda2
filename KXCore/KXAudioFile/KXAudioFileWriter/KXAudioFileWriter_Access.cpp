#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXMetadata.h"

namespace {
constexpr const char* kSource = "KXCore/KXAudioFile/KXAudioFileWriter/KXAudioFileWriter_Access";

bool isDocumentOrRaw(std::uint32_t format) { return format == KXFourCC("TESS") || format == KXFourCC("RAW "); }
}  // namespace

// --- Format and sample format

void KXAudioFileWriter::setFormat(std::uint32_t format) {
    log(kSource, "setFormat", "-[KXAudioFileWriter setFormat:]", __LINE__);
    encoding_ = KXFourCC("lpcm");
    byteOrder_ = KXByteOrderBigValue;
    isInterleaved_ = true;
    const bool rex = format == KXFourCC("REX1") || format == KXFourCC("REX2") || format == KXFourCC("RCY ");
    format_ = rex ? KXFourCC("APLL") : format;
    // Floating point survives only in AIFF and WAVE at 32 bits; every other format is set to
    // integers, deliberately, and takes floats again only through setIsFloatingPoint.
    const bool floatFormat = format_ == KXFourCC("AIFF") || format_ == KXFourCC("WAVE");
    isFloatingPoint_ = floatFormat && depth_ == 32 && isFloatingPoint_;
    if (format_ == KXFourCC("WAVE") || format_ == KXFourCC("ACID")) {
        byteOrder_ = KXByteOrderLittleValue;
    } else if (isDocumentOrRaw(format_)) {
        depth_ = 32;
        isInterleaved_ = false;
        isFloatingPoint_ = true;
    } else if (format_ == KXFourCC("ULAW")) {
        encoding_ = KXFourCC("ulaw");
    } else if (format_ == kSplitSDII) {
        isInterleaved_ = false;
    }
}

void KXAudioFileWriter::setDepth(std::int32_t depth) {
    log(kSource, "setDepth", "-[KXAudioFileWriter setDepth:]", __LINE__);
    depth_ = isDocumentOrRaw(format_) ? 32 : depth;
    if (depth_ != 32) isFloatingPoint_ = false;
    if (format_ == KXFourCC("AIFF") && depth_ != 16) byteOrder_ = KXByteOrderBigValue;
}

void KXAudioFileWriter::setIsFloatingPoint(bool floatingPoint) {
    log(kSource, "setIsFloatingPoint", "-[KXAudioFileWriter setIsFloatingPoint:]", __LINE__);
    isFloatingPoint_ = depth_ >= 32 && floatingPoint;
}

void KXAudioFileWriter::setInterleaved(bool interleaved) { isInterleaved_ = !isDocumentOrRaw(format_) && interleaved; }

KXIndexSet KXAudioFileWriter::channelSet() const {
    return KXIndexSet::indexSetWithIndexesInRange(0, std::uint32_t(std::max(channels_, 0)));
}

std::uint32_t KXAudioFileWriter::frames() const {
    return channels_ < 1 ? 0 : std::uint32_t(std::min<std::uint64_t>(samplesWritten_ / std::uint64_t(channels_), 0xFFFFFFFFu));
}

double KXAudioFileWriter::length() const { return rate_ < 1 ? 0.0 : double(frames()) / double(rate_); }

std::int64_t KXAudioFileWriter::positionOfAudioDataForChannel(std::uint32_t channel) const {
    if (isInterleaved_) return files_.empty() ? 0 : files_.front()->audioDataPosition();
    return channel < files_.size() ? files_[channel]->audioDataPosition() : 0;
}

std::string KXAudioFileWriter::filePath() const {
    if (files_.empty()) return {};
    const std::string& first = files_.front()->path();
    return format_ == KXFourCC("TESS") ? KXFile::directoryOfPath(first) : first;
}

std::vector<std::string> KXAudioFileWriter::filePaths() const {
    std::vector<std::string> paths;
    for (const auto& file : files_) paths.push_back(file->path());
    return paths;
}

// --- Switches

void KXAudioFileWriter::setTempDirectory(const std::string& directory) {
    log(kSource, "setTempDirectory", "-[KXAudioFileWriter setTempDirectory:]", __LINE__);
    tempDirectory_ = directory;
}

void KXAudioFileWriter::setWriteAnalysis(bool write) {
    log(kSource, "setWriteAnalysis", "-[KXAudioFileWriter setWriteAnalysis:]", __LINE__);
    writeAnalysis_ = write;
}

void KXAudioFileWriter::setWriteUnusedChunks(bool write) {
    log(kSource, "setWriteUnusedChunks", "-[KXAudioFileWriter setWriteUnusedChunks:]", __LINE__);
    writeUnusedChunks_ = write;
}

// --- Labels

void KXAudioFileWriter::setLabelListsFromAudioFile(const KXAudioFile& file) {
    markerList_->setState(file.markerList()->state());
    sliceList_->setState(file.sliceList()->state());
    regionList_->setState(file.regionList()->state());
    loopList_->setState(file.loopList()->state());
}

// --- Metadata

void KXAudioFileWriter::addMetadata(const KXDictionary& metadata, bool overwrite) {
    log(kSource, "addMetadata:overwrite", "-[KXAudioFileWriter addMetadata:overwrite:]", __LINE__);
    for (std::size_t i = 0; i < metadata.count(); ++i) {
        const std::string& key = metadata.keys()[i];
        if (overwrite || !metadata_.contains(key)) metadata_.setObject(metadata.valueAtIndex(i), key);
    }
}

void KXAudioFileWriter::addMetadataObject(KXValue value, const std::string& key) { metadata_.setObject(std::move(value), key); }

bool KXAudioFileWriter::hasMIDIMetadata() const {
    for (const KXMetadata::KeyPair& keys : KXMetadata::kMIDIKeys)
        if (metadata_.contains(keys.program) || metadata_.contains(keys.display)) return true;
    return false;
}

void KXAudioFileWriter::removeMIDIMetadata() {
    for (const KXMetadata::KeyPair& keys : KXMetadata::kMIDIKeys) metadata_.removeObjectForKey(keys.program);
    for (const char* key : {"MIDI Base Note", "Detune", "Gain", "MIDI Low Note", "MIDI High Note", "MIDI Low Velocity",
                            "MIDI HighVelocity"})
        metadata_.removeObjectForKey(key);
}

void KXAudioFileWriter::removeMusicalMetadata() {
    KXMetadata::removeKeys(metadata_, KXMetadata::kMusicalProgramKeys);
    for (const char* key : KXMetadata::kMusicalDisplayKeys)
        if (std::string_view(key) != "Tempo") metadata_.removeObjectForKey(key);
}

bool KXAudioFileWriter::hasAppleLoopMetadata() const { return KXMetadata::containsAnyKey(metadata_, KXMetadata::kAppleLoopKeys); }
void KXAudioFileWriter::removeAppleLoopMetadata() { KXMetadata::removeKeys(metadata_, KXMetadata::kAppleLoopKeys); }
bool KXAudioFileWriter::hasBroadcastWaveMetadata() const {
    return KXMetadata::containsAnyKey(metadata_, KXMetadata::kBroadcastWaveKeys);
}
void KXAudioFileWriter::removeBroadcastWaveMetadata() { KXMetadata::removeKeys(metadata_, KXMetadata::kBroadcastWaveKeys); }
bool KXAudioFileWriter::hasIXMLMetadata() const { return KXMetadata::containsAnyKey(metadata_, KXMetadata::kIXMLKeys); }

void KXAudioFileWriter::removeIXMLMetadata() {
    KXMetadata::removeKeys(metadata_, KXMetadata::kIXMLKeys);
    removeBroadcastWaveMetadata();
}

// --- Typed readers

std::int32_t KXAudioFileWriter::baseNote() const { return KXMetadata::integerForKeys(metadata_, KXMetadata::kBaseNote); }
std::int32_t KXAudioFileWriter::highNote() const { return KXMetadata::integerForKeys(metadata_, KXMetadata::kHighNote); }
std::int32_t KXAudioFileWriter::lowNote() const { return KXMetadata::integerForKeys(metadata_, KXMetadata::kLowNote); }
std::int32_t KXAudioFileWriter::highVelocity() const {
    return KXMetadata::integerForKeys(metadata_, KXMetadata::kHighVelocity);
}
std::int32_t KXAudioFileWriter::lowVelocity() const {
    return KXMetadata::integerForKeys(metadata_, KXMetadata::kLowVelocity);
}
std::int32_t KXAudioFileWriter::detune() const { return KXMetadata::integerForKeys(metadata_, KXMetadata::kDetune); }
std::int32_t KXAudioFileWriter::gain() const { return KXMetadata::integerForKeys(metadata_, KXMetadata::kGain); }
float KXAudioFileWriter::tempo() const { return KXMetadata::floatForKeys(metadata_, KXMetadata::kTempo); }
std::int32_t KXAudioFileWriter::timeSignature() const { return metadata_.objectForKey(KXMetadata::kTimeSignature).intValue(); }
std::int32_t KXAudioFileWriter::meterNumerator() const { return KXMetadata::meterNumerator(metadata_); }
std::int32_t KXAudioFileWriter::meterDenominator() const { return KXMetadata::meterDenominator(metadata_); }
std::int32_t KXAudioFileWriter::barsBeats() const { return metadata_.objectForKey(KXMetadata::kBarsBeats).intValue(); }
std::int32_t KXAudioFileWriter::eighthBeats() const { return KXMetadata::eighthBeats(metadata_); }
std::int32_t KXAudioFileWriter::key() const { return KXMetadata::key(metadata_); }
std::int32_t KXAudioFileWriter::scaleType() const { return KXMetadata::scaleType(metadata_); }
std::int32_t KXAudioFileWriter::playbackType() const { return KXMetadata::playbackType(metadata_); }

// --- Statistics

KXDictionary KXAudioFileWriter::analysisForChannels(const KXIndexSet& channels) const {
    KXArray list;
    for (std::uint32_t c = 0; c < std::uint32_t(std::max(channels_, 0)); ++c) {
        if (!channels.containsIndex(c)) continue;
        const std::shared_ptr<KXChannel> channel = channelsList_->channel(c);
        if (!channel) continue;
        KXDictionary entry{{"Clipped", channel->clipped()}, {"Max", channel->max()}, {"RMS", channel->rms()}};
        const auto table = [&](KXWaveform::Type type) {
            const auto waveform = channel->waveformForType(type);
            const auto bytes = waveform ? waveform->table() : std::nullopt;
            return bytes ? KXValue(*bytes) : KXValue(KXData());
        };
        entry.setObject(table(KXWaveform::kMax), "Magnitude Maxima");
        entry.setObject(table(KXWaveform::kRMS), "Root Mean Squares");
        entry.setObject(table(KXWaveform::kMean), "Magnitude Means");
        list.emplace_back(std::move(entry));
    }
    KXDictionary analysis{{"Channels", std::move(list)}};
    if (channelsList_->difference() != KXChannelsList::kNoDifference)
        analysis.setObject(channelsList_->difference(), "Difference");
    return analysis;
}
