#include <algorithm>

#include "KXAudioFile/KXEditList/KXEditList.h"

namespace {
const KXEditBlockArray kNoBlocks;

bool isRemote(const KXEditBlock& block) { return block.sourceType() == KXEditList::kSourceRemote; }
}  // namespace

// --- Channels and blocks

std::uint32_t KXEditList::blockCount() const {
    std::size_t count = 0;
    for (const KXEditBlockArray& channel : list_) count += channel.size();
    return std::uint32_t(count);
}

std::uint32_t KXEditList::maxChannelBlockCount() const {
    std::size_t most = 0;
    for (const KXEditBlockArray& channel : list_) most = std::max(most, channel.size());
    return std::uint32_t(most);
}

KXEditBlockArray KXEditList::blocks() const {
    KXEditBlockArray all;
    for (const KXEditBlockArray& channel : list_) all.insert(all.end(), channel.begin(), channel.end());
    return all;
}

const KXEditBlockArray& KXEditList::blocksForChannel(std::uint32_t channel) const {
    return channel < list_.size() ? list_[channel] : kNoBlocks;
}

KXEditBlockArray& KXEditList::mutableBlocksForChannel(std::uint32_t channel) {
    if (channel >= list_.size()) list_.resize(std::size_t(channel) + 1);
    return list_[channel];
}

std::shared_ptr<KXEditBlock> KXEditList::blockAtIndex(std::uint32_t index, std::uint32_t channel) const {
    const KXEditBlockArray& blocks = blocksForChannel(channel);
    return index < blocks.size() ? blocks[index] : nullptr;
}

std::shared_ptr<KXEditBlock> KXEditList::firstBlock() const {
    for (const KXEditBlockArray& channel : list_)
        if (!channel.empty()) return channel.front();
    return nullptr;
}

void KXEditList::addChannelAtIndex(std::uint32_t index) {
    list_.insert(list_.begin() + std::min<std::size_t>(index, list_.size()), KXEditBlockArray());
}

void KXEditList::duplicateChannelAtIndex(std::uint32_t index) {
    if (index >= list_.size()) return;
    KXEditBlockArray copies;
    for (const auto& block : list_[index]) copies.push_back(block->copy());
    list_.insert(list_.begin() + index + 1, std::move(copies));
}

void KXEditList::removeChannelAtIndex(std::uint32_t index) {
    if (index < list_.size()) list_.erase(list_.begin() + index);
}

void KXEditList::moveChannels(const KXIndexSet& channels, std::uint32_t index) {
    std::vector<KXEditBlockArray> moved, kept;
    std::size_t insertAt = std::string::npos;
    for (std::uint32_t c = 0; c < list_.size(); ++c) {
        if (c == index && !channels.containsIndex(c)) insertAt = kept.size();
        (channels.containsIndex(c) ? moved : kept).push_back(std::move(list_[c]));
    }
    if (insertAt == std::string::npos) insertAt = kept.size();
    kept.insert(kept.begin() + std::ptrdiff_t(insertAt), std::make_move_iterator(moved.begin()),
                std::make_move_iterator(moved.end()));
    list_ = std::move(kept);
}

void KXEditList::replaceSourcePath(const std::string& from, const std::string& to) {
    for (const auto& block : blocks())
        if (block->sourcePath() == from) block->setSourcePath(to);
}

// --- Queries over the blocks

bool KXEditList::hasRemoteBlocks() const {
    for (const KXEditBlockArray& channel : list_)
        for (const auto& block : channel)
            if (isRemote(*block)) return true;
    return false;
}

bool KXEditList::isContiguous() const {
    bool first = true;
    std::uint32_t start = 0, end = 0;
    for (const KXEditBlockArray& channel : list_) {
        if (channel.empty()) continue;
        if (first) start = channel.front()->startSample(), end = channel.back()->endSample(), first = false;
        if (channel.front()->startSample() != start || channel.back()->endSample() != end) return false;
        for (std::size_t b = 1; b < channel.size(); ++b)
            if (channel[b]->startSample() != channel[b - 1]->endSample()) return false;
    }
    return true;
}

bool KXEditList::isSlicedAt(std::uint32_t position, const KXIndexSet& channels) const {
    if (channels.empty()) return false;
    bool sliced = true;
    channels.enumerateIndexes([&](std::uint32_t c) {
        const KXEditBlockArray& blocks = blocksForChannel(c);
        const bool ends = std::any_of(blocks.begin(), blocks.end(), [&](const auto& b) { return b->endSample() == position; });
        const bool starts = std::any_of(blocks.begin(), blocks.end(), [&](const auto& b) { return b->startSample() == position; });
        sliced = ends && starts;
        return sliced;
    });
    return sliced;
}

bool KXEditList::hasLocalOverlap() const {
    for (const KXEditBlockArray& channel : list_) {
        const KXEditBlock* previous = nullptr;
        for (const auto& block : channel) {
            if (isRemote(*block)) continue;
            if (previous && previous->sampleRange().intersection(block->sampleRange()).length > 0) return true;
            previous = block.get();
        }
    }
    return false;
}

std::uint32_t KXEditList::crossfadeLengthForBlock(const KXEditBlock& block) const {
    for (const KXEditBlockArray& channel : list_)
        for (std::size_t b = 0; b < channel.size(); ++b)
            if (channel[b].get() == &block)
                return b == 0 ? 0 : channel[b - 1]->extent().intersection(block.extent()).length;
    return 0;
}

std::int32_t KXEditList::crossfadeTypeForBlock(const KXEditBlock& block) const {
    return crossfadeLengthForBlock(block) ? std::int32_t(block.startFadeType()) : -1;
}

void KXEditList::selectBlocks() {
    for (const auto& block : blocks()) block->setSelected(true);
}

void KXEditList::deselectBlocks() {
    for (const auto& block : blocks()) block->setSelected(false);
}

KXIndexSet KXEditList::indexesOfSelectedBlocksForChannel(std::uint32_t channel) const {
    KXIndexSet indexes;
    const KXEditBlockArray& blocks = blocksForChannel(channel);
    for (std::uint32_t b = 0; b < blocks.size(); ++b)
        if (blocks[b]->selected()) indexes.addIndex(b);
    return indexes;
}

void KXEditList::setActive(bool active) {
    for (const auto& block : blocks()) block->setActive(active);
}

void KXEditList::setModifying(bool modifying) {
    for (const auto& block : blocks()) block->setModifying(modifying);
}

template <typename Predicate>
int KXEditList::stateOf(Predicate has, int emptyAnswer) const {
    std::size_t count = 0, with = 0;
    for (const KXEditBlockArray& channel : list_)
        for (const auto& block : channel) ++count, with += has(*block) ? 1 : 0;
    if (count == 0) return emptyAnswer;
    return with == count ? 1 : with == 0 ? 0 : -1;
}

// An empty list is all active, but neither locked nor selected.
int KXEditList::activeState() const { return stateOf([](const KXEditBlock& b) { return b.active(); }, 1); }
int KXEditList::lockedState() const { return stateOf([](const KXEditBlock& b) { return b.locked(); }, 0); }
int KXEditList::selectedState() const { return stateOf([](const KXEditBlock& b) { return b.selected(); }, 0); }
int KXEditList::linkState() const { return stateOf(isRemote, 0); }

int KXEditList::colorStateForColorIndex(std::uint32_t index) const {
    return stateOf([index](const KXEditBlock& b) { return b.colorIndex() == index; }, 0);
}

int KXEditList::startFadeStateForFadeType(std::uint32_t type) const {
    return stateOf([type](const KXEditBlock& b) { return b.startFadeType() == type; }, 0);
}

int KXEditList::endFadeStateForFadeType(std::uint32_t type) const {
    return stateOf([type](const KXEditBlock& b) { return b.endFadeType() == type; }, 0);
}

KXSampleRange KXEditList::rangeOfBlocksContainingPosition(std::uint32_t position, std::uint32_t channel) const {
    std::optional<KXSampleRange> found;
    for (const auto& block : blocksForChannel(channel))
        if (block->sampleInBlock(position)) found = found ? found->unionWith(block->sampleRange()) : block->sampleRange();
    return found.value_or(KXSampleRange{});
}

KXSampleRange KXEditList::rangeOfChannel(std::uint32_t channel, bool includeFade) const {
    const KXEditBlockArray& blocks = blocksForChannel(channel);
    if (blocks.empty()) return {};
    const KXEditBlock& first = *blocks.front();
    const KXEditBlock& last = *blocks.back();
    if (includeFade) return first.extent().unionWith(last.extent());
    return first.sampleRange().unionWith(last.sampleRange());
}

KXSampleRange KXEditList::activeRangeOfChannel(std::uint32_t channel) const {
    const int state = activeState();
    if (state == 1) return range();
    if (state == 0) return {};
    std::optional<KXSampleRange> found;
    for (const auto& block : blocksForChannel(channel)) {
        if (!block->active()) continue;
        const KXSampleRange extent = block->extent();
        found = found ? KXSampleRange{found->location, std::uint32_t(extent.end() - found->location)} : extent;
    }
    return found.value_or(KXSampleRange{});
}

KXSampleRange KXEditList::startRange() const {
    std::optional<KXSampleRange> found;
    for (const KXEditBlockArray& channel : list_)
        if (!channel.empty()) {
            const KXSampleRange fade = channel.front()->startFadeRange();
            found = found ? found->unionWith(fade) : fade;
        }
    return found.value_or(KXSampleRange{});
}

KXSampleRange KXEditList::endRange() const {
    std::optional<KXSampleRange> found;
    for (const KXEditBlockArray& channel : list_)
        if (!channel.empty()) {
            const KXSampleRange fade = channel.back()->endFadeRange();
            found = found ? found->unionWith(fade) : fade;
        }
    return found.value_or(KXSampleRange{});
}

// --- Sub-lists

template <typename Predicate>
std::shared_ptr<KXEditList> KXEditList::filtered(Predicate keep) const {
    auto other = editListWithChannelCount(numberOfChannels());
    for (std::uint32_t c = 0; c < list_.size(); ++c)
        for (std::uint32_t b = 0; b < list_[c].size(); ++b)
            if (keep(*list_[c][b], c, b)) other->list_[c].push_back(list_[c][b]->copy());
    return other;
}

std::shared_ptr<KXEditList> KXEditList::editListForBlock(const KXEditBlock& block, bool allChannels) const {
    return filtered([&](const KXEditBlock& b, std::uint32_t, std::uint32_t) {
        return &b == &block || (allChannels && b.frameIsEqualToBlockFrame(block));
    });
}

std::shared_ptr<KXEditList> KXEditList::editListForBlocksAtIndex(std::uint32_t index) const {
    return filtered([index](const KXEditBlock&, std::uint32_t, std::uint32_t b) { return b == index; });
}

std::shared_ptr<KXEditList> KXEditList::editListForBlocksAtIndexes(const KXIndexSet& indexes, std::uint32_t channel) const {
    auto other = editListWithChannelCount(1);
    const KXEditBlockArray& blocks = blocksForChannel(channel);
    for (std::uint32_t b = 0; b < blocks.size(); ++b)
        if (indexes.containsIndex(b)) other->list_[0].push_back(blocks[b]->copy());
    return other;
}

std::shared_ptr<KXEditList> KXEditList::editListWithChannel(std::uint32_t channel) const {
    auto other = editListWithChannelCount(1);
    for (const auto& block : blocksForChannel(channel)) other->list_[0].push_back(block->copy());
    return other;
}

std::shared_ptr<KXEditList> KXEditList::editListWithSelectedBlocks() const {
    return filtered([](const KXEditBlock& b, std::uint32_t, std::uint32_t) { return b.selected(); });
}

std::shared_ptr<KXEditList> KXEditList::editListWithUnselectedBlocks() const {
    return filtered([](const KXEditBlock& b, std::uint32_t, std::uint32_t) { return !b.selected(); });
}

std::shared_ptr<KXEditList> KXEditList::editListWithBlocksPreceding(std::uint32_t position, bool touching) const {
    return filtered([=](const KXEditBlock& b, std::uint32_t, std::uint32_t) {
        return b.endSample() <= position || (touching && b.sampleInBlock(position));
    });
}

std::shared_ptr<KXEditList> KXEditList::editListWithBlocksFollowing(std::uint32_t position, bool touching) const {
    return filtered([=](const KXEditBlock& b, std::uint32_t, std::uint32_t) {
        return b.startSample() >= position || (touching && b.sampleInBlock(position));
    });
}

std::shared_ptr<KXEditList> KXEditList::editListWithRemoteBlocks() const {
    return filtered([](const KXEditBlock& b, std::uint32_t, std::uint32_t) { return isRemote(b); });
}

std::shared_ptr<KXEditList> KXEditList::editListFromRange(const KXSampleRange& range, const KXIndexSet& channels) const {
    auto other = editList();
    channels.enumerateIndexes([&](std::uint32_t c) {
        KXEditBlockArray cut;
        for (const auto& block : blocksForChannel(c)) {
            const KXSampleRange kept = block->sampleRange().intersection(range);
            if (kept.length == 0) continue;
            auto piece = block->copy();
            const std::uint32_t cutStart = kept.location - block->startSample();
            const std::uint32_t cutEnd = std::uint32_t(block->endSample() - kept.end());
            // A reversed block plays its source backwards: cutting its end skips source frames.
            piece->setSourceLocation(block->sourceLocation() + (block->reverse() ? cutEnd : cutStart));
            if (cutStart) piece->setStartFadeLength(0);
            if (cutEnd) piece->setEndFadeLength(0);
            piece->setSampleRange({kept.location - range.location, kept.length});
            piece->setStartFadeLength(std::min(piece->startFadeLength(), piece->startSample()));
            cut.push_back(piece);
        }
        other->list_.push_back(std::move(cut));
        return true;
    });
    return other;
}
