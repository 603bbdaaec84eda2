#include "KXAudioFile/KXChannels/KXChannelsList.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <vector>

#include "KXAudioFile/KXChannels/KXChannelLayouts.h"
#include "KXBase/KXFourCC.h"
#include "KXBase/KXVector.h"

std::shared_ptr<KXChannelsList> KXChannelsList::channelsListWithChannelCount(std::uint32_t count) {
    auto list = channelsList();
    for (std::uint32_t i = 0; i < count; ++i) list->list_.push_back(KXChannel::channel());
    return list;
}

std::shared_ptr<KXChannelsList> KXChannelsList::channelsListWithSplitFileExtensions(const std::string& layout) {
    auto list = channelsList();
    const auto names = KXChannelLayouts::namesForLayout(layout);
    const auto abbreviations = KXChannelLayouts::abbreviationsForLayout(layout);
    for (std::size_t i = 0; i < names.size(); ++i) {
        auto channel = KXChannel::channel();
        channel->setName(names[i]);
        const std::string abbreviation = i < abbreviations.size() ? abbreviations[i] : std::string();
        channel->setAbbreviation(abbreviation);
        channel->setExtension(abbreviation);  // deliberately the abbreviation
        list->list_.push_back(std::move(channel));
    }
    return list;
}

std::shared_ptr<KXChannelsList> KXChannelsList::copy() const {
    auto other = channelsList();
    for (const auto& channel : list_) other->list_.push_back(channel->copy());
    other->difference_ = difference_;
    return other;
}

std::shared_ptr<KXChannel> KXChannelsList::channel(std::uint32_t index) const {
    return index < list_.size() ? list_[index] : nullptr;
}

// --- Editing

void KXChannelsList::addChannelAtIndex(std::uint32_t index) {
    auto channel = KXChannel::channel();
    channel->setName("New Channel");
    channel->setAbbreviation("N");
    list_.insert(list_.begin() + std::min<std::ptrdiff_t>(index, std::ptrdiff_t(list_.size())), std::move(channel));
}

void KXChannelsList::duplicateChannelAtIndex(std::uint32_t index) {
    if (index >= list_.size()) return;
    auto copy = list_[index]->copy();
    copy->setName(list_[index]->name() + " copy");
    list_.insert(list_.begin() + std::ptrdiff_t(index) + 1, std::move(copy));
}

void KXChannelsList::removeChannelAtIndex(std::uint32_t index) {
    if (index < list_.size()) list_.erase(list_.begin() + std::ptrdiff_t(index));
}

void KXChannelsList::moveChannels(const KXIndexSet& channels, std::uint32_t index) {
    std::vector<std::shared_ptr<KXChannel>> moving, staying;
    const KXChannel* before = index < list_.size() && !channels.containsIndex(index) ? list_[index].get() : nullptr;
    for (std::uint32_t i = 0; i < list_.size(); ++i) (channels.containsIndex(i) ? moving : staying).push_back(list_[i]);
    auto at = std::find_if(staying.begin(), staying.end(), [&](const auto& c) { return c.get() == before; });
    staying.insert(at, moving.begin(), moving.end());
    list_ = std::move(staying);
}

// --- Analysis

void KXChannelsList::beginAnalysis(bool partial) {
    for (const auto& channel : list_) {
        channel->beginAnalysis(partial);
        if (!partial) channel->startClipCount();
    }
    aSignProductAccumulator_ = partial ? std::numeric_limits<double>::quiet_NaN() : 0.0;
    aRange_.reset();
    aFrames_ = 0;
}

void KXChannelsList::reserveAnalysisFrames(std::uint64_t frames) {
    for (const auto& channel : list_)
        for (const auto& waveform : channel->waveforms()) waveform->reserveSampleLength(frames);
}

void KXChannelsList::analyzeBuffer(const KXNativeAudioBuffer& buffer) {
    const std::uint32_t channels = std::min(count(), buffer.numberOfChannels());
    const bool signProduct = channels >= 2 && !std::isnan(aSignProductAccumulator_);
    const std::uint32_t frames = buffer.frames(), words = (frames + 15) / 16;
    // The channels' sign bits come from their own pass over the samples where it can give them.
    if (signProduct) negatives_.resize(std::size_t(words) * channels);
    bool allSigns = signProduct;
    for (std::uint32_t i = 0; i < list_.size(); ++i) {
        std::uint16_t* signs = signProduct && i < channels ? negatives_.data() + std::size_t(i) * words : nullptr;
        const bool written = buffer.isChannelEnabled(i) && list_[i]->analyzeBuffer(buffer, i, signs);
        if (signs && !written) allSigns = false;
    }
    if (!signProduct) return;
    // Per frame, the product of the channels' signs (+1 at or above 0.0, −1 below), summed: the
    // frames whose count of negative samples is odd contribute −1, the others +1.
    std::uint32_t negative = 0;  // at most `frames`
    if (allSigns) {
        std::vector<const std::uint16_t*> signs(channels);
        for (std::uint32_t c = 0; c < channels; ++c) signs[c] = negatives_.data() + std::size_t(c) * words;
        negative = KXVector::framesWithOddNegatives(signs.data(), channels, frames);
    } else {
        std::vector<const float*> samples(channels);
        for (std::uint32_t c = 0; c < channels; ++c) samples[c] = buffer.channel(c);
        negative = KXVector::framesWithOddNegatives(samples.data(), channels, frames);
    }
    aSignProductAccumulator_ += double(std::int64_t(frames) - 2 * std::int64_t(negative));
    KXGrowAnalysisRange(aRange_, aFrames_, buffer);
}

void KXChannelsList::endAnalysis() {
    for (const auto& channel : list_) channel->endAnalysis();
    const double covered = double(aRange_ ? aRange_->length : 0) + double(aFrames_);
    if (list_.size() > 1 && !std::isnan(aSignProductAccumulator_) && covered > 0) {
        const double m = aSignProductAccumulator_ / covered;
        difference_ = float(m >= 0 ? (1 - m) * 100 : (m + 1) * -100);
    } else {
        difference_ = kNoDifference;
    }
}

int KXChannelsList::analysisState() const {
    std::size_t analysed = 0, none = 0, half = 0;
    for (const auto& channel : list_) {
        const int state = channel->analysisState();
        (state == 1 ? analysed : state == 0 ? none : half)++;
    }
    if (none == 0 && half == 0) return 1;
    return half || analysed ? -1 : 0;
}

void KXChannelsList::removeAnalysisForChannels(const KXIndexSet& channels) {
    for (std::uint32_t i = 0; i < list_.size(); ++i)
        if (channels.containsIndex(i)) list_[i]->removeAnalysis();
}

void KXChannelsList::removeAnalysis() { removeAnalysisForChannels(allChannels()); }

// --- Statistics

float KXChannelsList::maxOfChannels(const KXIndexSet& channels) const {
    float largest = -1.0f;
    for (std::uint32_t i = 0; i < list_.size(); ++i)
        if (channels.containsIndex(i)) largest = std::max(largest, list_[i]->max());
    return largest;
}

float KXChannelsList::rmsOfChannels(const KXIndexSet& channels) const {
    double sum = 0;
    std::size_t counted = 0;
    for (std::uint32_t i = 0; i < list_.size(); ++i) {
        if (!channels.containsIndex(i)) continue;
        sum += double(list_[i]->rms()) * list_[i]->rms();  // NaN, not analysed, carries through
        ++counted;
    }
    return counted ? float(std::sqrt(sum / double(counted))) : std::numeric_limits<float>::quiet_NaN();
}

std::int32_t KXChannelsList::clip() const {
    std::int64_t sum = 0;
    for (const auto& channel : list_) sum += channel->clipped();
    if (list_.empty() && sum == 0) return -1;
    return std::int32_t(std::clamp<std::int64_t>(sum, INT32_MIN, INT32_MAX));
}

// --- Overviews

bool KXChannelsList::hasWaveforms() const {
    for (const auto& channel : list_)
        for (const auto& waveform : channel->waveforms())
            if (waveform->hasTable()) return true;
    return false;
}

std::vector<KXWaveformArray> KXChannelsList::waveforms() const {
    std::vector<KXWaveformArray> all;
    for (const auto& channel : list_) all.push_back(channel->waveforms());
    return all;
}

bool KXChannelsList::hasWaveformsOfType(std::int32_t type) const {
    if (list_.empty()) return false;
    for (const auto& channel : list_) {
        const auto waveform = channel->waveformForType(type);
        if (!waveform || !waveform->hasTable()) return false;
    }
    return true;
}

KXWaveformArray KXChannelsList::waveformsForType(std::int32_t type) const {
    KXWaveformArray all;
    for (const auto& channel : list_) all.push_back(channel->waveformForType(type));
    return all;
}

void KXChannelsList::addWaveforms(const KXWaveformArray& waveforms) {
    for (std::size_t i = 0; i < waveforms.size() && i < list_.size(); ++i) list_[i]->addWaveform(waveforms[i]);
}

// --- Names

bool KXChannelsList::hasNames() const {
    return std::any_of(list_.begin(), list_.end(), [](const auto& c) { return !c->name().empty(); });
}

std::optional<std::string> KXChannelsList::bundleExtensionForFormat(std::uint32_t format) const {
    return KXChannelLayouts::bundleExtensionForFormat(format, count());
}

void KXChannelsList::setSpeakerMask(std::uint32_t mask) { setSpeakers(KXChannelLayouts::speakersOfMask(mask)); }

void KXChannelsList::setSpeakers(std::span<const std::uint32_t> speakers) {
    for (std::size_t i = 0; i < list_.size(); ++i) list_[i]->setSpeaker(i < speakers.size() ? speakers[i] : 0);
    if (speakers.size() != list_.size()) return;
    // The speakers of the channel count's WAVE layout take that layout's names (four channels
    // are L R LS RS there, whatever the format's own four-channel layout).
    const std::uint32_t mask = speakerMask();
    if (mask != 0 && mask == KXChannelLayouts::speakerMaskForChannelCount(count())) {
        loadDefaultNamesForFormat(KXFourCC("WAVE"));
        return;
    }
    for (const auto& channel : list_) {
        const auto named = KXChannelLayouts::speakerName(std::uint32_t(std::countr_zero(channel->speaker())));
        if (!named) continue;
        channel->setName(named->first);
        channel->setAbbreviation(named->second);
        channel->setExtension(named->second);
    }
}

std::uint32_t KXChannelsList::speakerMask() const {
    std::vector<std::uint32_t> speakers;
    for (const auto& channel : list_) speakers.push_back(channel->speaker());
    return KXChannelLayouts::maskOfSpeakers(speakers);
}

void KXChannelsList::loadDefaultNamesForFormat(std::uint32_t format) {
    if (const auto layout = bundleExtensionForFormat(format)) {
        const auto names = KXChannelLayouts::namesForLayout(*layout);
        const auto abbreviations = KXChannelLayouts::abbreviationsForLayout(*layout);
        for (std::size_t i = 0; i < names.size() && i < list_.size(); ++i) {
            list_[i]->setName(names[i]);
            if (i < abbreviations.size()) list_[i]->setAbbreviation(abbreviations[i]);
        }
        return;
    }
    for (std::size_t i = 0; i < list_.size(); ++i) {
        list_[i]->setName("Channel " + std::to_string(i + 1));
        list_[i]->setAbbreviation(std::to_string(i + 1));
    }
}

// --- State and archive

KXArray KXChannelsList::state() const {
    KXArray state;
    for (const auto& channel : list_) state.push_back(channel->state());
    return state;
}

void KXChannelsList::setState(const KXArray& state) {
    list_.clear();
    for (const KXValue& entry : state)
        if (entry.type() == KXValue::Type::dictionary) list_.push_back(KXChannel::channelWithState(entry.dictionary()));
}

void KXChannelsList::encodeWithCoder(KXCoder& coder) const {
    coder.encodeArray(KXCodingArray(list_.begin(), list_.end()));
    coder.encodeFloat(difference_);
}

void KXChannelsList::initWithCoder(KXDecoder& decoder) {
    list_.clear();
    for (auto& object : decoder.decodeArray()) {
        auto channel = std::dynamic_pointer_cast<KXChannel>(object);
        if (!channel) {
            list_.clear();
            return decoder.markDamaged();
        }
        list_.push_back(std::move(channel));
    }
    difference_ = decoder.decodeFloat();
}

std::shared_ptr<KXCoding> KXChannelsList::archiveObjectForClassName(const std::string& name) {
    if (name == "KXChannelsList") return channelsList();
    if (name == "KXChannel") return KXChannel::channel();
    return KXWaveform::archiveObjectForClassName(name);
}
