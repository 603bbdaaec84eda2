#pragma once
// KXRegion: a named span (type 2, "Region") with a sync frame and a 64-bit time stamp.

#include "KXAudioFile/KXLabels/KXRangeLabel.h"

class KXRegion : public KXRangeLabel {
public:
    static const KXLabelClass& labelClass();
    const KXLabelClass& classOfLabel() const override { return labelClass(); }
    static std::shared_ptr<KXRegion> region() { return std::make_shared<KXRegion>(); }
    std::shared_ptr<KXLabel> copy() const override;

    std::uint32_t sync() const { return sync_; }
    void setSync(std::uint32_t sync) { sync_ = sync; }
    std::uint64_t timeStamp() const { return timeStamp_; }
    void setTimeStamp(std::uint64_t timeStamp) { timeStamp_ = timeStamp; }

    KXDictionary state() const override;
    // Also "Time Stamp MS" and "Time Stamp LS", OR-ed into the halves of the time stamp.
    void setState(const KXDictionary& state) override;
    KXValue objectForIdentifier(const std::string& identifier) const override;
    void setObject(const KXValue& value, const std::string& identifier) override;
    KXArray details() const override;
    // Archive: the span's, then sync and time stamp.
    void encodeWithCoder(KXCoder& coder) const override;
    void initWithCoder(KXDecoder& decoder) override;

private:
    std::uint32_t sync_ = 0;
    std::uint64_t timeStamp_ = 0;
};
