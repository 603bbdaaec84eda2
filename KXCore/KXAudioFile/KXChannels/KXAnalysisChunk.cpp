#include "KXAudioFile/KXChannels/KXAnalysisChunk.h"

#include <bit>

#include "KXBase/KXPropertyList.h"

namespace KXAnalysisChunk {

namespace {
constexpr std::uint32_t kAnalHeaderSize = 12;
}

KXData contentsForChannels(const KXChannelsList& list, const KXIndexSet& channels) {
    return KXPropertyList::binaryData(analysisForChannels(list, channels));
}

KXValue analysisForChannels(const KXChannelsList& list, const KXIndexSet& channels) {
    KXArray states;
    channels.enumerateIndexes([&](std::uint32_t index) {
        if (auto channel = list.channel(index)) states.push_back(channel->state());
        return true;
    });
    // Set one by one: an initializer list would copy the tables.
    KXDictionary dictionary;
    dictionary.setObject(std::move(states), "Channels");
    dictionary.setObject(list.difference(), "Difference");
    dictionary.setObject(KXDate::now(), "Date");
    dictionary.setObject(std::endian::native == std::endian::big, "TablesAreBigEndian");
    return KXValue(std::move(dictionary));
}

std::optional<bool> applyContents(KXChannelsList& list, const KXData& contents, std::uint32_t firstChannel,
                                  bool readGlobals) {
    const auto value = KXPropertyList::propertyListFromData(contents);
    if (!value || value->type() != KXValue::Type::dictionary) return std::nullopt;
    const KXDictionary& dictionary = value->dictionary();
    const KXArray& states = dictionary.objectForKey("Channels").array();
    for (std::size_t j = 0; j < states.size(); ++j) {
        auto channel = list.channel(firstChannel + std::uint32_t(j));
        if (channel && states[j].type() == KXValue::Type::dictionary) channel->setState(states[j].dictionary());
    }
    if (readGlobals) {
        if (const KXValue* difference = dictionary.find("Difference")) list.setDifference(difference->floatValue());
    }
    const KXValue* bigEndian = dictionary.find("TablesAreBigEndian");
    return !bigEndian || bigEndian->boolValue();
}

void tablesFromBigEndian(KXChannelsList& list) {
    if constexpr (std::endian::native == std::endian::big) return;
    for (const auto& waveforms : list.waveforms())
        for (const auto& waveform : waveforms) waveform->swap();
}

void applyInterleavedAnal(KXChannelsList& list, const KXChunk& chunk) {
    const std::uint32_t channels = list.count();
    if (channels == 0 || chunk.data().size() < kAnalHeaderSize) return;
    const std::size_t perChannel = (chunk.data().size() - kAnalHeaderSize) / channels;  // bytes
    const std::size_t entries = perChannel / 4;
    const std::uint8_t* body = chunk.data().data() + kAnalHeaderSize;
    for (std::uint32_t c = 0; c < channels; ++c) {
        auto& channel = *list.channel(c);
        KXData table(entries * 4);
        for (std::size_t e = 0; e < entries; ++e)  // entry e of channel c at index e × channels + c
            std::copy_n(body + (e * channels + c) * 4, 4, table.begin() + std::ptrdiff_t(e * 4));
        channel.setMax(chunk.floatValueAtByte(0));
        channel.setClipped(chunk.intValueAtByte(8) / std::int32_t(channels));
        channel.addWaveform(KXWaveform::waveformWithTable(KXWaveform::kMax, table));
    }
}

}  // namespace KXAnalysisChunk
