#pragma once
// KXEditList: the non-destructive edit list of an audio file — for each channel of the edited
// file, the edit blocks that say which source material plays where. Reading an edited file
// renders through fillBuffer(), which clears each channel and mixes every block of it in.
//
// Source types the list uses (KXEditBlock::sourceType): 0 a file of the document or a plain file
// opened as an edit list, 1 a file made by a writer, 2 a remote block (linked from elsewhere).
//
// Members are grouped as the sources are: KXEditList.cpp (construction, state, archive, range
// queries, ordering, rendering, the editor document's paths and parts), KXEditList_Access.cpp
// (queries over the blocks and sub-lists) and KXEditList_Editing.cpp (edit operations, merging,
// sources made a file's own, linked files).
//
// Rules the queries follow where a name alone leaves them open (ranges are sample ranges,
// without fades, unless a rule says otherwise; "list order" is the order of each channel's array):
//   firstBlock                 the first block of the first channel that has one
//   isSlicedAt(p, channels)    every given channel has a block that ends at p and one that
//                              starts at p (a cut there); false for an empty set
//   hasLocalOverlap            in some channel, two non-remote blocks, neighbours in list order,
//                              whose sample ranges share a frame
//   crossfadeLengthForBlock    the frames in which the block's extent with fades meets the extent
//                              of the block before it in its channel; 0 for the first block
//   crossfadeTypeForBlock      the block's fade-in type when that length is not 0, else −1
//   colorStateForColorIndex,   1 when the list has blocks and every one has the colour (fade
//   start/endFadeState…,       type, source type 2), 0 when none has (also for an empty list),
//   linkState                  −1 when some have
//   rangeOfBlocksContaining…   the union of the channel's blocks that hold the frame; (0, 0) for none
//   startRange / endRange      the union of each channel's first block's fade-in range / last
//                              block's fade-out range
//   editListForBlock           the block's own channel gets a copy of it; with allChannels, every
//                              channel gets copies of its blocks that are frame-equal to it
//   editListWithBlocksPreceding  blocks that end at or before p; touching adds those that hold p
//   editListWithBlocksFollowing  blocks that start at or after p; touching adds those that hold p
//   editListFromRange          the given channels (laid onto 0, 1, …), each block that meets the
//                              range cut to it (a cut side loses its fade), moved so that the
//                              range's first frame becomes frame 0
// Sub-lists answer copies; lists of one channel are answered for editListWithChannel and
// editListForBlocksAtIndexes, the others keep the receiver's channel count.

#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <string>
#include <vector>

#include "KXAudioFile/KXEditList/KXEditBlock.h"
#include "KXBase/KXCoder.h"
#include "KXBase/KXError.h"
#include "KXBase/KXIndexSet.h"
#include "KXBase/KXNativeAudioBuffer.h"
#include "KXBase/KXValue.h"

class KXAudioFile;
class KXAudioFileWriter;
class KXConverter;
class KXProgressDelegate;
class KXSourceReader;

using KXEditBlockArray = std::vector<std::shared_ptr<KXEditBlock>>;

class KXEditList : public KXCoding {
public:
    static constexpr std::uint32_t kNotFound = 0xFFFFFFFF;
    static constexpr std::uint32_t kSourceLocal = 0, kSourceWriter = 1, kSourceRemote = 2;

    KXEditList() = default;
    ~KXEditList() override = default;
    static std::shared_ptr<KXEditList> editList() { return std::make_shared<KXEditList>(); }
    static std::shared_ptr<KXEditList> editListWithChannelCount(std::uint32_t count);
    // Copies of every block (initWithEditList:, copy).
    std::shared_ptr<KXEditList> copy() const;
    // One block per channel over the whole of a plain file whose samples start at byte `offset`.
    static std::shared_ptr<KXEditList> editListWithAudioFile(const KXAudioFile& file, std::int64_t offset);
    // One block per channel over the files a writer has written.
    static std::shared_ptr<KXEditList> editListWithWriter(const KXAudioFileWriter& writer);

    // --- State: per channel, the blocks' state dictionaries in list order.
    KXArray state() const;
    void setState(const KXArray& state);
    // Archive: the channel array as one object.
    std::string archiveClassName() const override { return "KXEditList"; }
    void encodeWithCoder(KXCoder& coder) const override;
    void initWithCoder(KXDecoder& decoder) override;
    static std::shared_ptr<KXCoding> archiveObjectForClassName(const std::string& name);
    std::string description() const;

    // --- Channels and blocks (KXEditList_Access.cpp)
    std::uint32_t numberOfChannels() const { return std::uint32_t(list_.size()); }
    KXIndexSet channelSet() const { return KXIndexSet::indexSetWithIndexesInRange(0, numberOfChannels()); }
    std::uint32_t blockCount() const;
    std::uint32_t maxChannelBlockCount() const;
    KXEditBlockArray blocks() const;
    // Empty for a channel the list does not have.
    const KXEditBlockArray& blocksForChannel(std::uint32_t channel) const;
    KXEditBlockArray& mutableBlocksForChannel(std::uint32_t channel);
    std::shared_ptr<KXEditBlock> blockAtIndex(std::uint32_t index, std::uint32_t channel) const;
    std::shared_ptr<KXEditBlock> firstBlock() const;
    void addChannelAtIndex(std::uint32_t index);
    void duplicateChannelAtIndex(std::uint32_t index);
    void removeChannelAtIndex(std::uint32_t index);
    // Takes the channels out, in order, and puts them back before the channel that was at `index`
    // (at the end when that channel moves too or the index is past the end).
    void moveChannels(const KXIndexSet& channels, std::uint32_t index);
    KXProgressDelegate* progressDelegate() const { return progressDelegate_; }
    void setProgressDelegate(KXProgressDelegate* delegate) { progressDelegate_ = delegate; }

    bool hasRemoteBlocks() const;
    bool isContiguous() const;
    bool isSlicedAt(std::uint32_t position, const KXIndexSet& channels) const;
    bool hasLocalOverlap() const;
    std::int32_t crossfadeTypeForBlock(const KXEditBlock& block) const;
    std::uint32_t crossfadeLengthForBlock(const KXEditBlock& block) const;
    void selectBlocks();
    void deselectBlocks();
    KXIndexSet indexesOfSelectedBlocksForChannel(std::uint32_t channel) const;
    void setActive(bool active);
    void setModifying(bool modifying);
    int lockedState() const;
    int activeState() const;
    int selectedState() const;
    int colorStateForColorIndex(std::uint32_t index) const;
    int startFadeStateForFadeType(std::uint32_t type) const;
    int endFadeStateForFadeType(std::uint32_t type) const;
    int linkState() const;
    KXSampleRange rangeOfBlocksContainingPosition(std::uint32_t position, std::uint32_t channel) const;
    KXSampleRange rangeOfChannel(std::uint32_t channel, bool includeFade) const;
    KXSampleRange activeRangeOfChannel(std::uint32_t channel) const;
    KXSampleRange startRange() const;
    KXSampleRange endRange() const;

    // --- Sub-lists (KXEditList_Access.cpp)
    std::shared_ptr<KXEditList> editListForBlock(const KXEditBlock& block, bool allChannels) const;
    std::shared_ptr<KXEditList> editListForBlocksAtIndex(std::uint32_t index) const;
    std::shared_ptr<KXEditList> editListForBlocksAtIndexes(const KXIndexSet& indexes, std::uint32_t channel) const;
    std::shared_ptr<KXEditList> editListWithChannel(std::uint32_t channel) const;
    std::shared_ptr<KXEditList> editListWithSelectedBlocks() const;
    std::shared_ptr<KXEditList> editListWithUnselectedBlocks() const;
    std::shared_ptr<KXEditList> editListWithBlocksPreceding(std::uint32_t position, bool touching) const;
    std::shared_ptr<KXEditList> editListWithBlocksFollowing(std::uint32_t position, bool touching) const;
    std::shared_ptr<KXEditList> editListWithRemoteBlocks() const;
    std::shared_ptr<KXEditList> editListFromRange(const KXSampleRange& range, const KXIndexSet& channels) const;

    // Points every block that plays `from` at `to` (the file moved or was copied).
    void replaceSourcePath(const std::string& from, const std::string& to);

    // --- Editing (KXEditList_Editing.cpp). Positions are frames of the edited file. Cutting a
    // block at a frame keeps the source frame that plays at each edited frame (KXEditBlock::
    // splitAt); the cut sides lose their fades. Operations given channels skip those the list
    // does not have.
    // Appends the block to the channel, which is then sorted.
    void addBlock(std::shared_ptr<KXEditBlock> block, std::uint32_t channel);
    // Removes this very block.
    void removeBlock(const KXEditBlock& block, std::uint32_t channel);
    // Removes the blocks that the list's blocks are copies of (KXEditBlock::isSameEdit), channel
    // by channel; with `collapse`, what follows each removed block moves earlier by its length.
    void removeBlocksInEditList(const KXEditList& edits, bool collapse);
    // Copies of the list's blocks added to the same channels (they mix where they overlap).
    void addEditList(const KXEditList& edits);
    // Opens a gap of range.length frames at range.location: blocks are cut there and everything
    // from there on moves later by the length.
    void insertRange(const KXSampleRange& range, const KXIndexSet& channels);
    void insertRange(const KXSampleRange& range, std::uint32_t channel);
    // The gap of insertRange holding a block without a source, named "Silence".
    void insertSilence(const KXSampleRange& range, const KXIndexSet& channels);
    // The gap of insertRange as long as the list's extent (range().end()), holding copies of its
    // blocks moved by `position`: its channel k goes into the k-th channel given, or a list of
    // one channel into every channel given.
    void insertEditList(const KXEditList& edits, std::uint32_t position, const KXIndexSet& channels);
    // Replaces `range` (removed, collapsed) with the writer's files, its channel k in the k-th
    // channel given: as long as the writer's frames with `useWriterSize`, else as the range (the
    // writer's material cut to it).
    void insertWriterFile(const KXAudioFileWriter& writer, const KXSampleRange& range, const KXIndexSet& channels,
                          bool useWriterSize);
    // Blocks are cut at both ends of the range and those within it removed; with `collapse`,
    // what follows moves earlier by the range's length, else a gap of silence is left.
    void removeRange(const KXSampleRange& range, const KXIndexSet& channels, bool collapse);
    // Blocks are cut at both ends of the range; those within it are named `name`.
    void spliceRange(const KXSampleRange& range, const KXIndexSet& channels, const std::string& name);
    // Closes the gaps within the range where none of the channels plays anything (fades count
    // as playing): what follows each gap moves earlier by its length, in every channel given.
    void collapseRange(const KXSampleRange& range, const KXIndexSet& channels);
    // Keeps only what plays within the range (blocks cut at its ends, fades reaching out of it
    // shortened); unless `inPlace`, the range's first frame becomes frame 0.
    void cropRange(const KXSampleRange& range, const KXIndexSet& channels, bool inPlace);
    // Per channel, the blocks of this list that the edits name become one: joined without
    // rendering when each plays on from the one before (abutting, no fade between, one source
    // channel continuing, equal activity, polarity and gain); otherwise the channel's range
    // without fades is rendered through `file` ("Merging") into a temporary file of the file's
    // sample format, which one new block plays (named and coloured as the first). False with
    // the error when the render fails.
    bool mergeBlocksInEditList(const KXEditList& edits, KXAudioFile& file, KXError* error = nullptr);
    // Makes the list's sources `file`'s before it is pasted there: blocks playing the file itself
    // (or its temporary files) stay; with `link`, blocks of another editor document pasted into
    // a document are linked (remote); every other block's frames, with the source frames its
    // fades play, are copied into a temporary file of `file`'s sample format ("Pasting"),
    // converted to its rate when the source's differs (the block's length and fades then scaled
    // by the rates). Sources that are gone stay.
    bool conformSourcesToAudioFile(KXAudioFile& file, bool link, KXError* error = nullptr);
    // Copies the material of every remote block into a temporary file of `file` ("Localizing"),
    // which the block then plays: the document no longer depends on the linked files.
    bool localizeLinkedBlocksForAudioFile(KXAudioFile& file, KXError* error = nullptr);

    // --- Linked files (KXEditList_Editing.cpp)
    // Every block of source type 0 gets `folder` + "/" before its source path (the document's
    // own files are stored as bare names).
    void setLocalSourcePath(const std::string& folder);
    // Finds the folders of remote blocks that are missing: one moved together with the document
    // lies in `folder` (the folder holding the document's folder) and is taken without asking;
    // for any other the user is asked (findMissingLink), once a folder. False when the user
    // cancelled.
    bool confirmLinkedPathsForFile(const std::string& folder);
    // Asks the user about a missing folder of linked files: "Find" (an open panel; the chosen
    // folder takes the missing one's place in every block), "Cancel" (false) or "Skip" (true,
    // nothing changes; what a headless run answers).
    bool findMissingLink(const std::string& folder);
    // Points the blocks that play `from` at `to`. A block playing a part file of a document is
    // known by the document's header path, and keeps its file name in the folder of `to`.
    void replacePath(const std::string& from, const std::string& to);

    // --- Extent
    // Every block's extent with fades, all channels; (0, 0) for an empty list.
    KXSampleRange range() const;
    // The largest end among the channels' last blocks (the list is expected sorted).
    std::uint32_t length() const;

    // --- Ordering
    void sortChannel(std::uint32_t channel);
    void sort();
    // The block edge nearest to `position` over the given channels (blocks being modified are
    // skipped; ties keep the earlier); kNotFound when there is none.
    std::uint32_t positionOfEditNearestTo(std::int32_t position, const KXIndexSet& channels) const;

    // --- Rendering: every channel of `buffer` gets frames `range` of the edited channel of the
    // same index, silence where no block plays. `converter` decodes one channel of the sources.
    void fillBuffer(KXNativeAudioBuffer& buffer, const KXSampleRange& range, const KXConverter& converter);
    // The same for `count` arrays of range.length frames (nullptr: that channel is skipped), with
    // nothing written past them. When every channel is one plain block over the same frames of
    // one interleaved source, the source's frames are read and split into the channels in one
    // pass.
    void renderChannels(float* const* channels, std::uint32_t count, const KXSampleRange& range, const KXConverter& converter);

    // --- Writing the parts of an editor document whose files are named after `base` (see
    // KXTessaroDocument.h). Each answers a copy of the list whose blocks play the new parts
    // (their paths bare names), or nullptr with the error of the writer that failed.
    // Contiguous: each channel's active range rendered through `file` (fades included) into one
    // part; the blocks keep their places, each grown by its fades (now in the part), and
    // neighbours that then overlap meet in the middle of the overlap. Remote blocks are rendered
    // and re-pointed only with `mergeRemote`. Changes this list: its blocks lose gain,
    // polarity inversion and reversal, and remote blocks are inactive unless merged.
    std::shared_ptr<KXEditList> contiguousEditsWritableEditListForPath(const std::string& base, bool mergeRemote,
                                                                       KXAudioFile& file, KXError* error = nullptr);
    // Separate: every block that is not remote written with its fades and `extra` frames of
    // handle at each end into a part of its own, numbered in the order of blocks(); blocks
    // without a source keep none. The reporter's answer false cancels (nullptr).
    std::shared_ptr<KXEditList> separateEditsWritableEditListForPath(const std::string& base, std::int32_t extra,
                                                                     const KXConverter& converter, KXError* error = nullptr);

    // --- Editor document: the header path of a part file ("a/Song_0003.aif" → "a/Song.info";
    // otherwise the path with the extension "info"), and whether that header exists.
    static std::string tessaroHeaderPathFromAudioPath(const std::string& path);
    static bool isTessaroAudioPath(const std::string& path);

private:
    // A new list with this one's channel count and copies of the blocks that `keep` accepts.
    template <typename Predicate>
    std::shared_ptr<KXEditList> filtered(Predicate keep) const;
    // 1 all, 0 none (empty: `emptyAnswer`), −1 mixed.
    template <typename Predicate>
    int stateOf(Predicate has, int emptyAnswer) const;

    // The progress delegate, or one that reports nowhere.
    KXProgressDelegate& reporter() const;
    // The user's answer about a missing folder: nullopt to cancel, an empty answer to skip, or
    // the folder chosen in its place.
    static std::optional<std::optional<std::string>> askForMissingLink(const std::string& folder);
    // Cuts the blocks of each given channel at both ends of the range, then hands the channel's
    // blocks to `work`.
    template <typename Work>
    void cutChannelsAt(const KXSampleRange& range, const KXIndexSet& channels, Work work);
    // Cuts every block of the channel that holds `frame` (not at its first frame) in two.
    void splitChannelAt(std::uint32_t channel, std::uint32_t frame);
    // The block's source frames, read through the converter of the file `opened` (its source,
    // or the document a part file belongs to), into a temporary file of `file`.
    static bool copySourceIntoFile(KXEditBlock& block, const std::string& opened, KXAudioFile& file, KXError* error);

    // renderChannels' one-pass case; false (nothing written) when the channels do not allow it.
    bool renderInterleavedLocked(float* const* channels, std::uint32_t count, const KXSampleRange& range,
                                 const KXConverter& converter, KXSourceReader& reader) const;

    std::vector<KXEditBlockArray> list_;
    KXProgressDelegate* progressDelegate_ = nullptr;
    // Shared by renders (which may run on several threads at once), held alone by sorting.
    std::shared_mutex sortLock_;
};
