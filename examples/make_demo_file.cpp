// Makes the demo's file with the library: four seconds of a plucked C major chord, stereo 24-bit
// at 48 kHz, with two markers, a region, a sustain loop, Broadcast WAVE fields and iXML fields.
// Usage: make_demo_file OUT.wav

#include <cmath>
#include <cstdio>

#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXMarker.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "KXBase/KXFourCC.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUT.wav\n", argv[0]);
        return 2;
    }
    constexpr std::int32_t kRate = 48000;
    constexpr std::uint32_t kFrames = 4 * kRate;
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("WAVE"));
    writer.setChannels(2);
    writer.setRate(kRate);
    writer.setDepth(24);

    const auto addMarker = [&](double seconds, const char* name) {
        auto marker = KXMarker::marker();
        marker->setPosition(seconds);
        marker->setName(name);
        writer.markerList()->addLabel(marker);
    };
    addMarker(0.0, "Attack");
    addMarker(2.0, "Release");
    auto region = KXRegion::region();
    region->setStart(0.5);
    region->setEnd(1.5);
    region->setName("Body");
    writer.regionList()->addLabel(region);
    auto sustain = KXLoop::loop();  // the sustain loop, played forwards while a key is held
    sustain->setStart(1.0);
    sustain->setEnd(1.5);
    sustain->setLoopType(KXLoop::kForward);
    writer.loopList()->addLabel(sustain);

    KXDictionary& metadata = writer.mutableMetadata();
    metadata.setObject("A plucked C major chord", "description");
    metadata.setObject("kxaudio demo", "originator");
    metadata.setObject("2026-11-23", "originationDate");
    metadata.setObject("12:00:00", "originationTime");
    metadata.setObject("Demo", "project");
    metadata.setObject("1", "scene");
    metadata.setObject("3", "take");
    metadata.setObject("Made by make_demo_file", "note");

    KXError error;
    if (!writer.beginWrite(&error)) {
        std::fprintf(stderr, "%s\n", error.description().c_str());
        return 1;
    }
    // C4, E4 and G4, each a decaying sine with two overtones; the E leans left, the G right.
    const double notes[] = {261.63, 329.63, 392.00};
    const double pans[] = {0.5, 0.2, 0.8};
    KXNativeAudioBuffer buffer(2, kFrames);
    buffer.setFrames(kFrames);
    for (std::uint32_t frame = 0; frame < kFrames; ++frame) {
        const double t = double(frame) / kRate;
        double left = 0, right = 0;
        for (int n = 0; n < 3; ++n) {
            const double phase = 2.0 * M_PI * notes[n] * t;
            const double tone =
                (std::sin(phase) + 0.3 * std::sin(2 * phase) + 0.1 * std::sin(3 * phase)) * std::exp(-1.2 * t);
            left += tone * (1.0 - pans[n]);
            right += tone * pans[n];
        }
        buffer.channel(0)[frame] = float(0.35 * left);
        buffer.channel(1)[frame] = float(0.35 * right);
    }
    writer.writeBuffer(buffer);
    if (!writer.endWrite(&error) || !writer.saveToPath(argv[1])) {
        std::fprintf(stderr, "writing %s failed: %s\n", argv[1], error.description().c_str());
        return 1;
    }
    return 0;
}
