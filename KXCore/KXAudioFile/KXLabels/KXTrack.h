#pragma once
// KXTrack: a CD track (type 4, "Track") on the CD frame grid of 75 frames a second, with its ISRC,
// copy and emphasis flags and CD-Text.
//
// Copies and archives keep the span and the lock only: the ID, the name and the CD fields are
// neither copied nor archived.

#include "KXAudioFile/KXLabels/KXRangeLabel.h"
#include "KXBase/KXData.h"

class KXTrack : public KXRangeLabel {
public:
    static const KXLabelClass& labelClass();
    const KXLabelClass& classOfLabel() const override { return labelClass(); }
    static std::shared_ptr<KXTrack> track() { return std::make_shared<KXTrack>(); }
    std::shared_ptr<KXLabel> copy() const override;

    // Start and end are kept on the CD frame grid.
    void setPosition(double position) override;
    using KXRangeLabel::setPosition;
    void setEnd(double end) override;
    std::uint32_t startFrame() const;
    std::uint32_t endFrame() const;
    std::uint32_t lengthInFrames() const { return endFrame() - startFrame(); }

    const std::optional<std::string>& isrc() const { return isrc_; }
    void setIsrc(std::optional<std::string> isrc) { isrc_ = std::move(isrc); }
    bool scms() const { return scms_; }
    void setScms(bool scms) { scms_ = scms; }
    bool preEmphasis() const { return preEmphasis_; }
    void setPreEmphasis(bool preEmphasis) { preEmphasis_ = preEmphasis; }
    const std::optional<std::string>& performer() const { return performer_; }
    void setPerformer(std::optional<std::string> text) { performer_ = std::move(text); }
    const std::optional<std::string>& songwriter() const { return songwriter_; }
    void setSongwriter(std::optional<std::string> text) { songwriter_ = std::move(text); }
    const std::optional<std::string>& composer() const { return composer_; }
    void setComposer(std::optional<std::string> text) { composer_ = std::move(text); }
    const std::optional<std::string>& arranger() const { return arranger_; }
    void setArranger(std::optional<std::string> text) { arranger_ = std::move(text); }
    const std::optional<std::string>& message() const { return message_; }
    void setMessage(std::optional<std::string> text) { message_ = std::move(text); }
    const std::optional<std::string>& other() const { return other_; }
    void setOther(std::optional<std::string> text) { other_ = std::move(text); }
    const std::optional<std::string>& ddpUserText() const { return ddpUserText_; }
    void setDDPUserText(std::optional<std::string> text) { ddpUserText_ = std::move(text); }

    // The ISRC's UTF-8 bytes, as many as it has characters but at most 13; nullopt when empty.
    std::optional<KXData> isrcAsData() const;
    // Whether the ISRC or any of performer, songwriter, composer, arranger, message is non-empty.
    bool hasCDText() const;

    KXDictionary state() const override;
    void setState(const KXDictionary& state) override;
    KXValue objectForIdentifier(const std::string& identifier) const override;
    void setObject(const KXValue& value, const std::string& identifier) override;
    KXArray details() const override;

private:
    struct TextField {
        const char* key;
        std::optional<std::string> KXTrack::*field;
    };
    static const TextField kTextFields[];

    std::optional<std::string> isrc_;
    bool scms_ = false;
    bool preEmphasis_ = false;
    std::optional<std::string> performer_, songwriter_, composer_, arranger_, message_, other_, ddpUserText_;
};
