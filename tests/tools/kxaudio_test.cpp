// The command-line tool, run as a user runs it.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <map>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXMarker.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXVersion.h"
#include "support/KXTestSupport.h"

namespace {

struct ToolRun {
    int status;
    std::string out;
};

// Runs kxaudio with `arguments`; standard error is kept apart (2>/dev/null) unless merged.
ToolRun kxaudio(const std::string& arguments, bool mergeErrors = false) {
    const std::string command = std::string(KXAUDIO_TOOL) + " " + arguments + (mergeErrors ? " 2>&1" : " 2>/dev/null");
    FILE* pipe = popen(command.c_str(), "r");
    ToolRun run{-1, {}};
    if (!pipe) return run;
    std::array<char, 4096> buffer;
    while (std::size_t got = fread(buffer.data(), 1, buffer.size(), pipe)) run.out.append(buffer.data(), got);
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

std::string quoted(const std::string& path) { return "'" + path + "'"; }

// The one entry of a command over files run on one file: --json prints an array whatever the
// number of files.
nlohmann::json only(const ToolRun& run) {
    const auto all = nlohmann::json::parse(run.out);
    EXPECT_TRUE(all.is_array() && all.size() == 1) << run.out;
    return all.is_array() && !all.empty() ? all[0] : nlohmann::json();
}

KXTestFile wave() {
    return KXTestFile::riff().chunk("fmt ", KXData(16, 0)).chunk("data", KXData(8, 0)).chunk("NAME", bytesOf("odd"), false);
}

}  // namespace

TEST(KXAudioTool, VersionAndHelp) {
    const ToolRun version = kxaudio("--version");
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, std::string("kxaudio ") + KX_VERSION + "\n");
    EXPECT_EQ(kxaudio("chunks --help").status, 0);
    EXPECT_NE(kxaudio("frobnicate").status, 0);
    // The manual page has every subcommand's help, each with its example.
    const std::string manual = kxaudio("--manual").out;
    for (const char* command : {"info", "chunks", "cat", "convert", "process", "repair", "stats", "onsets", "analyze",
                                "waveform", "play", "tag"}) {
        const std::size_t at = manual.find(std::string(".SS ") + command + "\n");
        ASSERT_NE(at, std::string::npos) << command;
        const std::size_t next = manual.find(".SS ", at + 1);
        EXPECT_NE(manual.substr(at, next - at).find("Example:"), std::string::npos) << command;
    }
}

TEST(KXAudioTool, InfoRefusesAnEmptyFileWithTheLibrarysError) {
    KXTemporaryFolder folder;
    const std::string empty = folder.write("empty.wav", {});
    const ToolRun json = kxaudio("info --json " + quoted(empty));
    EXPECT_EQ(json.status, 1);
    const auto error = only(json)["error"];
    EXPECT_EQ(error["code"], -3);
    EXPECT_EQ(error["domain"], "KXAudioFileErrorDomain");
    EXPECT_EQ(error["action"], "Opening the audio file");
    EXPECT_EQ(error["reason"], "the file has no data.");
    const ToolRun text = kxaudio("info " + quoted(empty), true);
    EXPECT_EQ(text.status, 1);
    EXPECT_NE(text.out.find("Opening the audio file: the file has no data. (code -3)"), std::string::npos);

    // Three bytes reach the Sound Designer II fallback, which fails in the file layer.
    const auto three = only(kxaudio("info --json " + quoted(folder.write("x", bytesOf("abc")))));
    EXPECT_EQ(three["error"]["domain"], "KXPOSIXErrorDomain");
    EXPECT_EQ(three["error"]["code"], ENOENT);
}

TEST(KXAudioTool, ChunksListsAWalkAndItsWarning) {
    KXTemporaryFolder folder;
    // Two bytes past the RIFF size; an odd 'NAME' without its pad byte.
    const std::string path = folder.write("a.wav", wave().finish().bytes({0, 0}).data());
    const ToolRun run = kxaudio("chunks --json " + quoted(path));
    ASSERT_EQ(run.status, 0) << run.out;
    const auto result = only(run);
    EXPECT_EQ(result["container"], "WAVE");
    ASSERT_EQ(result["chunks"].size(), 3u);
    EXPECT_EQ(result["chunks"][1]["type"], "data");
    EXPECT_EQ(result["chunks"][1]["loaded"], false);
    EXPECT_EQ(result["chunks"][2]["length"], 3);
    EXPECT_EQ(result["warning"]["code"], -10);
    EXPECT_EQ(result["warning"]["reason"], "the file size was adjusted.");
    EXPECT_EQ(result["fileSize"], wave().finish().data().size());
    const ToolRun text = kxaudio("chunks " + quoted(path), true);
    EXPECT_NE(text.out.find("'NAME' at 52, 3 bytes"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("warning: Verifying the chunks: the file size was adjusted. (code -10)"), std::string::npos);
}

TEST(KXAudioTool, ChunksRefusesBrokenContainers) {
    KXTemporaryFolder folder;
    struct Case {
        KXData bytes;
        int code;
    } cases[] = {
        {wave().finish().setU32At(4, 4096).data(), -4},
        {wave().bytes(bytesOf("\0\0\0\0\0\0\0\0\0\0")).finish().data(), -8},
    };
    for (const Case& c : cases) {
        const ToolRun run = kxaudio("chunks --json " + quoted(folder.write("bad.wav", c.bytes)));
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(only(run)["error"]["code"], c.code);
    }
}

TEST(KXAudioTool, InfoAndCatOfAWaveFile) {
    KXTemporaryFolder folder;
    // Stereo 16-bit, 5 frames: samples 0, 1 … 9, then a marker at frame 2.
    KXData fmt = {1, 0, 2, 0, 0x44, 0xAC, 0, 0, 0x10, 0xB1, 2, 0, 4, 0, 16, 0};
    KXData samples;
    for (std::uint8_t s = 0; s < 10; ++s) samples.insert(samples.end(), {s, 0});
    KXData cue = {1, 0, 0, 0, 7, 0, 0, 0, 2, 0, 0, 0, 'd', 'a', 't', 'a', 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0};
    const std::string path = folder.write(
        "take.wav", KXTestFile::riff().chunk("fmt ", fmt).chunk("cue ", cue).chunk("data", samples).finish().data());
    const ToolRun info = kxaudio("info --json " + quoted(path));
    ASSERT_EQ(info.status, 0) << info.out;
    const auto result = only(info);
    EXPECT_EQ(result["format"], "WAVE");
    EXPECT_EQ(result["frames"], 5);
    EXPECT_EQ(result["channelNames"], nlohmann::json::array({"Left", "Right"}));
    ASSERT_EQ(result["markers"].size(), 1u);
    EXPECT_EQ(result["markers"][0]["id"], 7);

    const ToolRun all = kxaudio("cat --s16 " + quoted(path));
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(KXData(all.out.begin(), all.out.end()), samples);
    const ToolRun part = kxaudio("cat --s16 --start 1 --frames 2 " + quoted(path));
    EXPECT_EQ(KXData(part.out.begin(), part.out.end()), KXData(samples.begin() + 4, samples.begin() + 12));
    const ToolRun floats = kxaudio("cat --start 4 " + quoted(path));
    ASSERT_EQ(floats.out.size(), 8u);
    float right;
    std::memcpy(&right, floats.out.data() + 4, 4);
    EXPECT_EQ(right, 9.0f / 32768.0f);
    EXPECT_EQ(kxaudio("cat " + quoted(folder.pathFor("missing.wav"))).status, 1);
}

TEST(KXAudioTool, ConvertWritesThroughTheWriterAndKeepsLabels) {
    KXTemporaryFolder folder;
    KXData fmt = {1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x80, 0x3E, 0, 0, 2, 0, 16, 0};  // mono 16-bit 8000 Hz
    KXData samples;
    for (int s = -50; s < 50; ++s) samples.insert(samples.end(), {std::uint8_t(s * 300), std::uint8_t((s * 300) >> 8)});
    KXData cue = {1, 0, 0, 0, 9, 0, 0, 0, 40, 0, 0, 0, 'd', 'a', 't', 'a', 0, 0, 0, 0, 0, 0, 0, 0, 40, 0, 0, 0};
    const std::string in = folder.write(
        "in.wav", KXTestFile::riff().chunk("fmt ", fmt).chunk("cue ", cue).chunk("data", samples).finish().data());

    // To 24-bit WAVE and back: the samples and the marker stay.
    const std::string wide = folder.pathFor("wide.wav");
    ASSERT_EQ(kxaudio("convert --depth 24 " + quoted(in) + " " + quoted(wide)).status, 0);
    const auto info = only(kxaudio("info --json " + quoted(wide)));
    EXPECT_EQ(info["depth"], 24);
    ASSERT_EQ(info["markers"].size(), 1u);
    EXPECT_EQ(info["markers"][0]["position"], 40.0 / 8000);
    const ToolRun back = kxaudio("cat --s16 " + quoted(wide));
    EXPECT_EQ(KXData(back.out.begin(), back.out.end()), samples);

    // AU by extension; an existing file is numbered on request.
    const std::string au = folder.pathFor("out.au");
    ASSERT_EQ(kxaudio("convert " + quoted(in) + " " + quoted(au)).status, 0);
    EXPECT_EQ(only(kxaudio("info --json " + quoted(au)))["format"], "ULAW");
    const ToolRun numbered = kxaudio("convert --exists number " + quoted(in) + " " + quoted(au));
    EXPECT_EQ(numbered.status, 0);
    EXPECT_NE(numbered.out.find("out_000.au"), std::string::npos) << numbered.out;
    // AIFF: the same samples, big-endian.
    const std::string aiff = folder.pathFor("out.aif");
    ASSERT_EQ(kxaudio("convert " + quoted(in) + " " + quoted(aiff)).status, 0);
    const auto aiffInfo = only(kxaudio("info --json " + quoted(aiff)));
    EXPECT_EQ(aiffInfo["format"], "AIFF");
    EXPECT_EQ(aiffInfo["audioDataByteOrder"], "big");
    EXPECT_EQ(aiffInfo["markers"].size(), 1u);
    const ToolRun aiffSamples = kxaudio("cat --s16 " + quoted(aiff));
    EXPECT_EQ(KXData(aiffSamples.out.begin(), aiffSamples.out.end()), samples);
    // Nothing is left behind but what was asked for.
    EXPECT_EQ(KXFile::contentsOfDirectoryAtPath(folder.path()),
              (std::vector<std::string>{"in.wav", "out.aif", "out.au", "out_000.au", "wide.wav"}));
}

TEST(KXAudioTool, ConvertWritesSoundDesignerFilesThatInfoReadsBack) {
    KXTemporaryFolder folder;
    KXData fmt = {1, 0, 2, 0, 0x44, 0xAC, 0, 0, 0x10, 0xB1, 2, 0, 4, 0, 16, 0};  // stereo 16-bit 44100 Hz
    KXData samples;
    for (int s = 0; s < 400; ++s) samples.insert(samples.end(), {std::uint8_t(s * 77), std::uint8_t((s * 77) >> 8)});
    KXData cue = {1, 0, 0, 0, 9, 0, 0, 0, 50, 0, 0, 0, 'd', 'a', 't', 'a', 0, 0, 0, 0, 0, 0, 0, 0, 50, 0, 0, 0};
    const KXData info = KXPayload::little().raw(bytesOf("INFO")).sub("INAM", bytesOf("Take\0")).sub("IART", bytesOf("Band\0")).bytes;
    const std::string in = folder.write("in.wav", KXTestFile::riff()
                                                       .chunk("fmt ", fmt)
                                                       .chunk("cue ", cue)
                                                       .chunk("LIST", info)
                                                       .chunk("data", samples)
                                                       .finish()
                                                       .data());
    for (const char* name : {"take.sd2", "take.sd", "split/take.sd2"}) {
        const std::string out = name;
        SCOPED_TRACE(out);
        const bool split = out.find('/') != std::string::npos;
        if (split) {
            ASSERT_TRUE(KXFile::createDirectoryAtPath(folder.pathFor("split")));
        }
        const ToolRun converted = kxaudio("convert " + std::string(split ? "--split " : "") + quoted(in) + " " +
                                          quoted(folder.pathFor(out)));
        ASSERT_EQ(converted.status, 0);
        // A Sound Designer I file is mono: two channels make a pair of files, as --split does for SD II.
        const std::string first = converted.out.substr(0, converted.out.find('\n'));
        EXPECT_EQ(converted.out.find(".sd") != converted.out.rfind(".sd"), out != "take.sd2") << converted.out;
        const auto read = only(kxaudio("info --json " + quoted(first)));
        EXPECT_EQ(read["channels"], 2);
        EXPECT_EQ(read["frames"], 200);
        ASSERT_EQ(read["markers"].size(), 1u);
        EXPECT_EQ(read["markers"][0]["position"], 50.0 / 44100);
        EXPECT_EQ(read["metadata"]["metaName"], "Take");
        EXPECT_EQ(read["metadata"]["originalArtist"], "Band");
        const ToolRun back = kxaudio("cat --s16 " + quoted(first));
        EXPECT_EQ(KXData(back.out.begin(), back.out.end()), samples);
    }
}

TEST(KXAudioTool, ConvertKeepsG711WhereTheTargetHoldsItAndSixteenBitsElsewhere) {
    KXTemporaryFolder folder;
    KXData fmt = {6, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x40, 0x1F, 0, 0, 1, 0, 8, 0};  // A-law mono 8000 Hz
    KXData samples;
    for (int s = 0; s < 256; ++s) samples.push_back(std::uint8_t(s));
    const std::string in =
        folder.write("in.wav", KXTestFile::riff().chunk("fmt ", fmt).chunk("data", samples).finish().data());
    const std::string decoded = kxaudio("cat " + quoted(in)).out;
    ASSERT_EQ(decoded.size(), 256u * 4);
    const struct {
        const char* name;
        const char* encoding;
        int depth;
    } targets[] = {{"out.caf", "alaw", 8}, {"out.aif", "alaw", 8}, {"out.au", "alaw", 8}, {"out.sd2", "lpcm", 16}};
    for (const auto& t : targets) {
        SCOPED_TRACE(t.name);
        const std::string out = folder.pathFor(t.name);
        ASSERT_EQ(kxaudio("convert " + quoted(in) + " " + quoted(out)).status, 0);
        const auto read = only(kxaudio("info --json " + quoted(out)));
        EXPECT_EQ(read["encoding"], t.encoding);
        EXPECT_EQ(read["depth"], t.depth);
        // Every A-law code comes back as it was decoded: 16 bits hold each one exactly.
        EXPECT_EQ(kxaudio("cat " + quoted(out)).out, decoded);
    }
}

TEST(KXAudioTool, JSONStaysValidWhateverBytesNamesAndTextsHold) {
    // A Latin-1 file name and iXML text that is not UTF-8; both were copied into the JSON as they
    // were, and the JSON library aborted on them.
    KXTemporaryFolder folder;
    const KXData ixml = bytesOf("<BWFXML><NOTE>caf\xE9</NOTE></BWFXML>");
    const std::string path = folder.write("caf\xE9.wav", KXTestFile::riff()
                                                             .chunk("fmt ", {1, 0, 1, 0, 0x44, 0xAC, 0, 0, 0x88, 0x58, 1, 0, 2, 0, 16, 0})
                                                             .chunk("data", KXData(8, 0))
                                                             .chunk("iXML", ixml)
                                                             .finish()
                                                             .data());
    const ToolRun info = kxaudio("info --json " + quoted(path));
    ASSERT_EQ(info.status, 0);
    const auto parsed = only(info);
    EXPECT_EQ(parsed["name"], "caf\xEF\xBF\xBD.wav");
    EXPECT_EQ(parsed["metadata"]["note"], "caf\xC3\xA9");  // WAVE text that is not UTF-8 is Windows-1252
    // What convert writes from it reads back as valid text too.
    const std::string out = folder.pathFor("out.wav");
    ASSERT_EQ(kxaudio("convert " + quoted(path) + " " + quoted(out)).status, 0);
    EXPECT_EQ(only(kxaudio("info --json " + quoted(out)))["metadata"]["note"], "caf\xC3\xA9");
}

TEST(KXAudioTool, AConvertThatCannotWriteKeepsTheOldFileAndSaysSo) {
    // A file-size limit stands in for a full disk: every format's writes fail past it.
    KXTemporaryFolder folder;
    KXData samples(400000, 0);
    const std::string input = folder.write("in.wav", KXTestFile::riff()
                                                         .chunk("fmt ", {1, 0, 1, 0, 0x44, 0xAC, 0, 0, 0x88, 0x58, 1, 0, 2, 0, 16, 0})
                                                         .chunk("data", samples)
                                                         .finish()
                                                         .data());
    for (const char* extension : {"wav", "aif", "au", "raw"}) {
        SCOPED_TRACE(extension);
        const std::string output = folder.write(std::string("old.") + extension, bytesOf("the old file"));
        const std::string command = "trap '' XFSZ; ulimit -f 64; " + std::string(KXAUDIO_TOOL) + " convert " + quoted(input) +
                                    " " + quoted(output) + " --exists replace 2>/dev/null";
        const std::string script = folder.write("convert.sh", bytesOf(command + "\n"));
        const int status = std::system(("bash " + quoted(script)).c_str());
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
        EXPECT_EQ(readWholeFile(output), bytesOf("the old file"));
        KXFile::deleteFileAtPath(script);
        for (const std::string& name : KXFile::contentsOfDirectoryAtPath(folder.path()))
            EXPECT_EQ(name.find("kxaudio-temp"), std::string::npos) << name;
    }
}

TEST(KXAudioTool, ConvertRefusesAnExtensionThatNamesNoFormatUnlessTheFormatIsGiven) {
    KXTemporaryFolder folder;
    const KXData fmt = {1, 0, 2, 0, 0x40, 0x1F, 0, 0, 0, 0x7D, 0, 0, 4, 0, 16, 0};  // stereo 16-bit 8000 Hz
    const std::string in = folder.write("in.wav", KXTestFile::riff().chunk("fmt ", fmt).chunk("data", KXData(400, 1)).finish().data());
    const ToolRun flac = kxaudio("convert " + quoted(in) + " " + quoted(folder.pathFor("x.flac")), true);
    EXPECT_EQ(flac.status, 1);
    EXPECT_NE(flac.out.find("--format"), std::string::npos) << flac.out;
    EXPECT_FALSE(KXFile::existsAtPath(folder.pathFor("x.flac")));
    ASSERT_EQ(kxaudio("convert --format wav " + quoted(in) + " " + quoted(folder.pathFor("x.flac"))).status, 0);
    EXPECT_EQ(only(kxaudio("info --json " + quoted(folder.pathFor("x.flac"))))["format"], "WAVE");
    // Extensions in capitals and the longer spellings name their formats.
    ASSERT_EQ(kxaudio("convert " + quoted(in) + " " + quoted(folder.pathFor("y.AIFF"))).status, 0);
    EXPECT_EQ(only(kxaudio("info --json " + quoted(folder.pathFor("y.AIFF"))))["format"], "AIFF");
    // CAF by its extension.
    ASSERT_EQ(kxaudio("convert " + quoted(in) + " " + quoted(folder.pathFor("z.caf"))).status, 0);
    EXPECT_EQ(only(kxaudio("info --json " + quoted(folder.pathFor("z.caf"))))["format"], "caff");
    EXPECT_EQ(kxaudio("cat --s16 " + quoted(folder.pathFor("z.caf"))).out, kxaudio("cat --s16 " + quoted(in)).out);
    // BW64 when asked, in a WAVE file.
    ASSERT_EQ(kxaudio("convert --format bw64 " + quoted(in) + " " + quoted(folder.pathFor("b.wav"))).status, 0);
    const KXData bw64 = readWholeFile(folder.pathFor("b.wav"));
    EXPECT_EQ(KXData(bw64.begin(), bw64.begin() + 4), bytesOf("BW64"));
    EXPECT_EQ(kxaudio("cat --s16 " + quoted(folder.pathFor("b.wav"))).out, kxaudio("cat --s16 " + quoted(in)).out);
    // A split conversion reads back at its full length.
    ASSERT_EQ(kxaudio("convert --split " + quoted(in) + " " + quoted(folder.pathFor("split.wav"))).status, 0);
    const auto split = only(kxaudio("info --json " + quoted(folder.pathFor("split.L.wav"))));
    EXPECT_EQ(split["frames"], 100);
    EXPECT_EQ(split["channels"], 2);
}

TEST(KXAudioTool, ARecordingCutShortIsNamedAndRepaired) {
    KXTemporaryFolder folder;
    const KXData fmt = {1, 0, 2, 0, 0x40, 0x1F, 0, 0, 0, 0x7D, 0, 0, 4, 0, 16, 0};
    KXData bytes = KXTestFile::riff().chunk("fmt ", fmt).chunk("data", KXData(400, 3)).finish().data();
    bytes.resize(bytes.size() - 199);
    const std::string path = folder.write("take.wav", bytes);
    const ToolRun info = kxaudio("info " + quoted(path), true);
    EXPECT_EQ(info.status, 1);
    EXPECT_NE(info.out.find("(code -4)"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("kxaudio repair '" + path + "'"), std::string::npos) << info.out;
    EXPECT_EQ(only(kxaudio("info --json " + quoted(path)))["error"]["hint"].is_string(), true);
    const ToolRun repair = kxaudio("repair " + quoted(path));
    EXPECT_EQ(repair.status, 0);
    EXPECT_EQ(repair.out, path + ": recovered, 50 frames\n");
    EXPECT_EQ(kxaudio("repair " + quoted(path)).out, path + ": nothing to mend\n");
    EXPECT_EQ(kxaudio("repair " + quoted(folder.pathFor("none.wav"))).status, 1);
}

TEST(KXAudioTool, CatReachesFramesPast2To31) {
    KXTemporaryFolder folder;
    const std::uint32_t frames = 0xFFFFFFDAu;  // 8-bit mono: the most a RIFF size can describe
    KXData header = KXTestFile::riff().chunk("fmt ", {1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x40, 0x1F, 0, 0, 1, 0, 8, 0}).data();
    header.insert(header.end(), {'d', 'a', 't', 'a', 0, 0, 0, 0});
    kx::store32(header.data() + header.size() - 4, frames, KXByteOrder::little);
    kx::store32(header.data() + 4, std::uint32_t(header.size() - 8) + frames, KXByteOrder::little);
    const std::string path = folder.writeSparse("long.wav", header, frames, {{3000000000u, 0xC0}});
    const ToolRun cat = kxaudio("cat --s16 --start 3000000000 --frames 2 " + quoted(path));
    EXPECT_EQ(cat.status, 0);
    EXPECT_EQ(KXData(cat.out.begin(), cat.out.end()), (KXData{0x00, 0x40, 0x00, 0x80}));  // +0.5, then −1.0
}

TEST(KXAudioTool, StatsReportsLevelsPitchTheLoudestPointAndLoudness) {
    KXTemporaryFolder folder;
    // Two channels of a harmonic A (440 Hz) at different levels, the right one louder.
    KXPayload data = KXPayload::little();
    for (int f = 0; f < 44100 * 4; ++f)
        for (double gain : {0.25, 0.5}) {
            double x = 0;
            for (int k = 1; k <= 4; ++k) x += std::sin(2 * 3.14159265358979 * 440.0 * k * f / 44100) / k;
            data.f32(float(gain * 0.5 * x));
        }
    const KXData fmt = KXPayload::little().u16(3).u16(2).u32(44100).u32(44100 * 8).u16(8).u16(32).bytes;
    const std::string path = folder.write("tone.wav", KXTestFile::riff().chunk("fmt ", fmt).chunk("data", data.bytes).finish().data());

    const ToolRun run = kxaudio("stats --json --start 1 --end 3 --channels 2 " + quoted(path));
    ASSERT_EQ(run.status, 0) << run.out;
    const auto stats = only(run);
    EXPECT_EQ(stats["start"], 1.0);
    ASSERT_EQ(stats["channels"].size(), 1u);
    const auto& right = stats["channels"][0];
    EXPECT_EQ(right["name"], "Right");
    EXPECT_EQ(right["pitch"]["note"], 57);
    EXPECT_EQ(right["pitch"]["name"], "A4");
    EXPECT_GE(right["peakPosition"].get<double>(), 1.0);
    EXPECT_NEAR(right["peakDBFS"].get<double>(), 20 * std::log10(right["peak"].get<double>()), 0.01);
    EXPECT_EQ(stats["loudestPoint"]["channel"], 2);
    EXPECT_LT(stats["loudness"]["integrated"].get<double>(), 0.0);
    // Text for people, and a refusal for what does not open.
    EXPECT_NE(kxaudio("stats " + quoted(path)).out.find("pitch         A4 (note 57)"), std::string::npos);
    EXPECT_EQ(kxaudio("stats " + quoted(folder.pathFor("missing.wav")), true).status, 1);
}

TEST(KXAudioTool, OnsetsAndAnalyze) {
    KXTemporaryFolder folder;
    // Two 50 ms beeps at 0.5 s and 1.25 s in 2 s of near silence, 8 kHz.
    const std::string path = folder.write("beats.wav", [] {
        const KXData fmt = KXPayload::little().u16(1).u16(1).u32(8000).u32(16000).u16(2).u16(16).bytes;
        KXPayload data = KXPayload::little();
        for (int f = 0; f < 16000; ++f) {
            const bool on = (f >= 4000 && f < 4400) || (f >= 10000 && f < 10400);
            data.u16(std::uint16_t(std::int16_t(on ? 20000 * std::sin(f * 0.2) : 0)));
        }
        return KXTestFile::riff().chunk("fmt ", fmt).chunk("data", data.bytes).finish().data();
    }());
    const auto energy = only(kxaudio("onsets --json " + quoted(path)));
    ASSERT_EQ(energy["onsets"].size(), 2u);
    EXPECT_NEAR(energy["onsets"][0]["position"].get<double>(), 0.5, 512.0 / 8000);
    EXPECT_NEAR(energy["onsets"][1]["position"].get<double>(), 1.25, 512.0 / 8000);
    const auto ranges = only(kxaudio("onsets --json --method threshold --attack 0.3 --release 0.1 " + quoted(path)));
    ASSERT_EQ(ranges["ranges"].size(), 2u);
    EXPECT_EQ(ranges["ranges"][0]["startFrame"], 4000 / 256 * 256);
    EXPECT_GT(ranges["ranges"][0]["endFrame"].get<int>(), 4400);
    // A sensitivity replaces the levels: asking for both is a usage error.
    EXPECT_NE(kxaudio("onsets --sensitivity 0.5 --attack 0.3 " + quoted(path), true).status, 0);

    // analyze --write stores the analysis in the file: a second run finds it.
    const auto first = only(kxaudio("analyze --write --json " + quoted(path)));
    EXPECT_EQ(first["alreadyAnalysed"], false);
    EXPECT_EQ(first["storedIn"], "file");
    EXPECT_NEAR(first["channels"][0]["max"].get<double>(), 20000.0 / 32768, 1e-3);
    EXPECT_EQ(only(kxaudio("analyze --json " + quoted(path)))["alreadyAnalysed"], true);
}

TEST(KXAudioTool, WaveformDrawsTheOverviewsOrPrintsThem) {
    KXTemporaryFolder folder;
    // 8192 frames at 0.5, 8192 at 0.25 (32 overview blocks each), 8 kHz stereo, the right
    // channel half as loud.
    const std::string path = folder.write("steps.wav", [] {
        const KXData fmt = KXPayload::little().u16(1).u16(2).u32(8000).u32(32000).u16(4).u16(16).bytes;
        KXPayload data = KXPayload::little();
        for (int f = 0; f < 16384; ++f)
            for (int c = 0; c < 2; ++c) data.u16(std::uint16_t(std::int16_t((f % 2 ? 1 : -1) * (f < 8192 ? 16384 : 8192) / (c + 1))));
        return KXTestFile::riff().chunk("fmt ", fmt).chunk("data", data.bytes).finish().data();
    }());
    const auto columns = nlohmann::json::parse(kxaudio("waveform --json --width 2 " + quoted(path)).out);
    ASSERT_EQ(columns["channels"].size(), 2u);
    EXPECT_EQ(columns["channels"][0]["max"], (nlohmann::json{0.5, 0.25}));
    EXPECT_EQ(columns["channels"][1]["rms"], (nlohmann::json{0.25, 0.125}));
    const auto right = nlohmann::json::parse(kxaudio("waveform --json --width 1 --channels 2 --start 1.024 " + quoted(path)).out);
    EXPECT_EQ(right["channels"][0]["max"], (nlohmann::json{0.125}));

    const std::string png = folder.pathFor("steps.png");
    ASSERT_EQ(kxaudio("waveform -o " + quoted(png) + " --width 320 --height 100 " + quoted(path)).status, 0);
    const KXData picture = readWholeFile(png);
    ASSERT_GT(picture.size(), 33u);
    EXPECT_EQ(KXData(picture.begin(), picture.begin() + 8), (KXData{0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A}));
    EXPECT_EQ(kx::load32(picture.data() + 16, KXByteOrder::big), 320u);  // IHDR width and height
    EXPECT_EQ(kx::load32(picture.data() + 20, KXByteOrder::big), 100u);
    EXPECT_NE(kxaudio("waveform " + quoted(path), true).status, 0);  // neither -o nor --json
}

TEST(KXAudioTool, ConvertStoresTheMeasuredLoudnessInBext) {
    KXTemporaryFolder folder;
    // A 1 kHz sine at -18 dBFS in both channels, 5 s at 48 kHz: -18.0 LUFS.
    const std::string in = folder.write("tone.wav", [] {
        const KXData fmt = KXPayload::little().u16(3).u16(2).u32(48000).u32(48000 * 8).u16(8).u16(32).bytes;
        KXPayload data = KXPayload::little();
        for (int f = 0; f < 48000 * 5; ++f)
            for (int c = 0; c < 2; ++c) data.f32(float(std::pow(10.0, -18.0 / 20) * std::sin(2 * 3.14159265358979 * 1000.0 * f / 48000)));
        return KXTestFile::riff().chunk("fmt ", fmt).chunk("data", data.bytes).finish().data();
    }());
    const std::string out = folder.pathFor("measured.wav");
    ASSERT_EQ(kxaudio("convert --loudness --depth 24 " + quoted(in) + " " + quoted(out)).status, 0);
    const auto info = only(kxaudio("info --json " + quoted(out)));
    EXPECT_NEAR(info["metadata"]["loudnessValue"].get<double>(), -18.0, 0.1);
    EXPECT_NEAR(info["metadata"]["maxTruePeakLevel"].get<double>(), -18.0, 0.2);
    EXPECT_NEAR(info["metadata"]["loudnessRange"].get<double>(), 0.0, 0.1);
    // Without the flag nothing is measured or stored.
    const std::string plain = folder.pathFor("plain.wav");
    ASSERT_EQ(kxaudio("convert " + quoted(in) + " " + quoted(plain)).status, 0);
    EXPECT_FALSE(only(kxaudio("info --json " + quoted(plain)))["metadata"].contains("loudnessValue"));
}

namespace {

// Every sample of a file, channel by channel, with its rate and marker positions.
struct FileContents {
    std::uint32_t rate = 0;
    std::vector<std::vector<float>> channels;
    std::vector<double> markers;
};

FileContents contentsOf(const std::string& path) {
    FileContents contents;
    auto file = KXAudioFile::audioFileWithPath(path);
    if (!file) return contents;
    contents.rate = file->rate();
    KXNativeAudioBuffer buffer(file->numberOfChannels(), file->frames());
    file->readSamplesToBuffer(buffer, 0);
    for (std::uint32_t c = 0; c < file->numberOfChannels(); ++c)
        contents.channels.emplace_back(buffer.channel(c), buffer.channel(c) + file->frames());
    for (const auto& marker : file->markerList()->list()) contents.markers.push_back(marker->position());
    return contents;
}

}  // namespace

TEST(KXAudioTool, ProcessRunsTheOperationsInOrderOnTheSelection) {
    KXTemporaryFolder folder;
    // 1 s at 8 kHz: a ramp in channel 1, 0.5 in channel 2; markers at 0.25 s and 0.75 s.
    const std::string in = folder.pathFor("in.wav");
    {
        KXAudioFileWriter writer;
        writer.setTempDirectory(folder.path());
        writer.setFormat(KXFourCC("WAVE"));
        writer.setIsFloatingPoint(true);
        writer.setRate(8000);
        writer.setChannels(2);
        for (double at : {0.25, 0.75}) {
            auto marker = KXMarker::marker();
            marker->setPosition(at);
            writer.markerList()->addLabel(marker);
        }
        ASSERT_TRUE(writer.beginWrite());
        for (int f = 0; f < 8000; ++f) writer.writeSample(float(f) / 8000.0f, 0), writer.writeSample(0.5f, 1);
        ASSERT_TRUE(writer.endWrite());
        ASSERT_TRUE(writer.saveToPath(in));
    }
    const FileContents source = contentsOf(in);
    const auto process = [&](const std::string& arguments, const std::string& name) {
        const std::string out = folder.pathFor(name);
        EXPECT_EQ(kxaudio("process " + quoted(in) + " " + quoted(out) + " " + arguments).status, 0) << arguments;
        return contentsOf(out);
    };

    // In place: only the selected frames of the selected channel change, in the order given.
    const FileContents part = process("--start 0.25 --end 0.5 --channels 2 --gain -6.0206 --invert", "part.wav");
    ASSERT_EQ(part.channels.size(), 2u);
    EXPECT_EQ(part.channels[0], source.channels[0]);
    EXPECT_FLOAT_EQ(part.channels[1][2000], -0.25f);
    EXPECT_FLOAT_EQ(part.channels[1][3999], -0.25f);
    EXPECT_EQ(part.channels[1][1999], 0.5f);
    EXPECT_EQ(part.channels[1][4000], 0.5f);
    EXPECT_EQ(part.markers, source.markers);

    const FileContents faded = process("--fade-in 0.5 --fade-out 0.25:1", "faded.wav");
    EXPECT_EQ(faded.channels[1][0], 0.0f);
    EXPECT_FLOAT_EQ(faded.channels[1][1000], 0.5f * 0.25f);
    EXPECT_EQ(faded.channels[1][5000], 0.5f);
    EXPECT_FLOAT_EQ(faded.channels[1][7000], 0.5f * 0.5f * 0.5f + 0.5f * 0.5f);  // (1 − t)² + t·2·c·(1 − t), t = ½, c = 1

    // Labels follow the time they mark.
    const FileContents snipped = process("--start 0.25 --end 0.5 --snip", "snipped.wav");
    EXPECT_EQ(snipped.channels[0].size(), 6000u);
    EXPECT_EQ(snipped.channels[0][2000], source.channels[0][4000]);
    EXPECT_EQ(snipped.markers, std::vector<double>{0.5});
    const FileContents reversed = process("--reverse", "reversed.wav");
    EXPECT_EQ(reversed.channels[0][0], source.channels[0][7999]);
    EXPECT_EQ(reversed.markers, (std::vector<double>{0.75, 0.25}));
    const FileContents slower = process("--rate 16000 --stretch 2", "slower.wav");
    EXPECT_EQ(slower.rate, 16000u);
    EXPECT_EQ(slower.channels[0].size(), 32000u);
    EXPECT_EQ(slower.markers, (std::vector<double>{0.5, 1.5}));
    const FileContents excerpt = process("--start 0.5 --end 0.875", "excerpt.wav");
    EXPECT_EQ(excerpt.channels[0].size(), 3000u);
    EXPECT_EQ(excerpt.channels[0][0], source.channels[0][4000]);
    EXPECT_EQ(excerpt.markers, std::vector<double>{0.25});

    // Mixing down to 16 bits is dithered unless asked not to be.
    const FileContents plain = process("--sum 1,2 --average --depth 16 --no-dither", "plain.wav");
    const FileContents dithered = process("--sum 1,2 --average --depth 16", "dithered.wav");
    ASSERT_EQ(plain.channels.size(), 1u);
    int differing = 0;
    for (std::size_t f = 0; f < 8000; ++f) {
        const float mean = (source.channels[0][f] + source.channels[1][f]) / 2;
        EXPECT_EQ(plain.channels[0][f], std::nearbyint(mean * 32768) / 32768) << f;
        EXPECT_LE(std::fabs(dithered.channels[0][f] - mean) * 32768, 1.5f) << f;
        differing += plain.channels[0][f] != dithered.channels[0][f];
    }
    EXPECT_GT(differing, 2000);

    const ToolRun refused = kxaudio("process " + quoted(in) + " " + quoted(folder.pathFor("x.wav")) + " --matrix 1,x", true);
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.out.find("--matrix takes rows"), std::string::npos);
}

TEST(KXAudioTool, PlayStreamsThePlayBuffersThroughEachRepeatMode) {
    KXTemporaryFolder folder;
    const std::uint32_t frames = 100000;
    const std::string path = KXTestSamples::writeSignalFile(folder, "loop.wav", 2, 44100, frames, false, KXTestSamples::sample);
    // The frames a player should give, in order: to B, then through the repeat range A … B.
    const std::int64_t a = 22050, b = 66150;
    const auto expected = [&](const std::string& mode, std::size_t count) {
        std::vector<std::uint32_t> order;
        for (std::int64_t f = 0; f < b; ++f) order.push_back(std::uint32_t(f));
        for (int turn = 0; order.size() < count; ++turn) {
            const bool down = mode == "backward" || (mode == "alternate" && turn % 2 == 0);
            for (std::int64_t i = 0; i < b - a; ++i) order.push_back(std::uint32_t(down ? b - 1 - i : a + i));
        }
        order.resize(count);
        return order;
    };
    const auto check = [&](const std::string& arguments, const std::vector<std::uint32_t>& order) {
        SCOPED_TRACE(arguments);
        const ToolRun run = kxaudio("play " + quoted(path) + " " + arguments);
        ASSERT_EQ(run.status, 0);
        ASSERT_EQ(run.out.size(), order.size() * 2 * sizeof(float));
        for (std::size_t i = 0; i < order.size(); ++i)
            for (std::uint32_t c = 0; c < 2; ++c) {
                float value;
                std::memcpy(&value, run.out.data() + (i * 2 + c) * sizeof(float), sizeof value);
                if (value != KXTestSamples::sample(order[i], c)) {
                    ADD_FAILURE() << "output frame " << i << " channel " << c << " is not frame " << order[i];
                    return;
                }
            }
    };
    std::vector<std::uint32_t> forwards(frames), backwards(44100);
    for (std::uint32_t f = 0; f < frames; ++f) forwards[f] = f;
    for (std::uint32_t f = 0; f < 44100; ++f) backwards[f] = 44099 - f;
    check("", forwards);
    check("--threaded --block 333", forwards);
    check("--reverse --start 1", backwards);
    for (const std::string mode : {"forward", "alternate", "backward"}) {
        check("--repeat 0.5:1.5 --mode " + mode + " --seconds 4 --block 700", expected(mode, 4 * 44100));
        check("--repeat 0.5:1.5 --mode " + mode + " --seconds 4 --threaded", expected(mode, 4 * 44100));
    }
    EXPECT_NE(kxaudio("play --repeat 2:1 " + quoted(path)).status, 0);
    const ToolRun statistics = kxaudio("play --threaded --statistics --seconds 0.01 " + quoted(path), true);
    EXPECT_NE(statistics.out.find("loaded by the player: "), std::string::npos);
}

namespace {

// Stereo 16-bit 44.1 kHz, 200 frames, with a named marker at frame 50, a region 20…120, a
// forward-backward loop 10…100 and INFO title and artist; `junk` puts a 'JUNK' chunk first.
KXData labelledWave(bool junk = false) {
    KXData samples;
    for (int s = 0; s < 400; ++s) samples.insert(samples.end(), {std::uint8_t(s * 77), std::uint8_t((s * 77) >> 8)});
    const KXData cue = KXPayload::little().u32(2)
                           .u32(9).u32(50).u32(0).raw(bytesOf("data")).u32(0).u32(50)
                           .u32(4).u32(20).u32(0).raw(bytesOf("data")).u32(0).u32(20).bytes;
    const KXData adtl = KXPayload::little().raw(bytesOf("adtl"))
                            .sub("labl", KXPayload::little().u32(9).raw(bytesOf("Hit\0")).bytes)
                            .sub("ltxt", KXPayload::little().u32(4).u32(100).raw(bytesOf("rgn ")).u16(0).u16(0).u16(0).u16(0).bytes)
                            .bytes;
    KXPayload smpl = KXPayload::little();
    smpl.u32(0).u32(0).u32(0).u32(60).u32(0).u32(0).u32(0).u32(1).u32(0);
    smpl.u32(7).u32(1).u32(10).u32(100).u32(0).u32(0);
    const KXData info = KXPayload::little().raw(bytesOf("INFO")).sub("INAM", bytesOf("Take\0")).sub("IART", bytesOf("Band\0")).bytes;
    KXTestFile file = KXTestFile::riff();
    if (junk) file.chunk("JUNK", KXData(28, 0));
    return file.chunk("fmt ", KXData{1, 0, 2, 0, 0x44, 0xAC, 0, 0, 0x10, 0xB1, 2, 0, 4, 0, 16, 0})
        .chunk("cue ", cue)
        .chunk("LIST", adtl)
        .chunk("smpl", smpl.bytes)
        .chunk("LIST", info)
        .chunk("data", samples)
        .finish()
        .data();
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}  // namespace

TEST(KXAudioTool, CommandsOverManyFilesKeepTheirOrderAndOneJSONShapeAndExitByTheWorst) {
    KXTemporaryFolder folder;
    const std::vector<std::string> paths = [&] {
        std::vector<std::string> made;
        for (int i = 0; i < 6; ++i) made.push_back(folder.write("f" + std::to_string(i) + ".wav", labelledWave()));
        return made;
    }();
    const std::string empty = folder.write("empty.wav", {});
    std::string all;
    for (const std::string& path : paths) all += " " + quoted(path);

    for (const char* command : {"info", "chunks", "stats", "analyze", "onsets"}) {
        SCOPED_TRACE(command);
        // On four threads the entries still come in the files' order, the refused one in its place.
        const ToolRun run = kxaudio(std::string(command) + " --json -j 4 " + quoted(paths[0]) + " " + quoted(empty) + all);
        EXPECT_EQ(run.status, 1);
        const auto entries = nlohmann::json::parse(run.out);
        ASSERT_EQ(entries.size(), 8u);
        EXPECT_EQ(entries[0]["path"], paths[0]);
        EXPECT_EQ(entries[1]["path"], empty);
        EXPECT_TRUE(entries[1]["error"].contains("code"));
        EXPECT_EQ(entries[1].size(), 2u);  // path and error only
        for (std::size_t i = 0; i < paths.size(); ++i) {
            EXPECT_EQ(entries[i + 2]["path"], paths[i]);
            EXPECT_FALSE(entries[i + 2].contains("error"));
        }
        EXPECT_EQ(kxaudio(std::string(command) + " -j 3" + all).status, 0);
        // A refused file alone is an array of one entry too.
        EXPECT_EQ(only(kxaudio(std::string(command) + " --json " + quoted(empty)))["error"], entries[1]["error"]);
    }
    // Text: each file's lines whole and in order; refusals on stderr.
    const ToolRun text = kxaudio("info -j 4" + all + " " + quoted(empty), true);
    EXPECT_EQ(text.status, 1);
    std::size_t last = 0;
    for (const std::string& path : paths) {
        const std::size_t at = text.out.find(path + "\n  Format");
        ASSERT_NE(at, std::string::npos) << text.out;
        EXPECT_GE(at, last);
        last = at;
    }
    EXPECT_TRUE(contains(text.out, "kxaudio: " + empty + ": Opening the audio file: the file has no data. (code -3)"));

    // Usage errors answer 2, help 0.
    EXPECT_EQ(kxaudio("info").status, 2);
    EXPECT_EQ(kxaudio("info --no-such-option " + quoted(paths[0])).status, 2);
    EXPECT_EQ(kxaudio("stats --channels 0 " + quoted(paths[0])).status, 2);
    EXPECT_EQ(kxaudio("frobnicate").status, 2);
    EXPECT_EQ(kxaudio("").status, 2);
    const ToolRun help = kxaudio("convert --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(contains(help.out, "Example:")) << help.out;
}

TEST(KXAudioTool, InfoReadsLikeSoxiAndChunksShowWhatTheWalkSkipped) {
    KXTemporaryFolder folder;
    const std::string path = folder.write("take.wav", labelledWave(true));
    const ToolRun info = kxaudio("info " + quoted(path));
    ASSERT_EQ(info.status, 0);
    for (const char* line : {"  Format          WAVE\n", "  Sample format   16-bit signed integer PCM, little-endian\n",
                             "  Channels        2 (Left, Right)\n", "  Sample rate     44,100 Hz\n",
                             "  Duration        0:00:00.005 = 200 frames\n", "  Bit rate        1.41 Mb/s\n",
                             "    #9  0:00:00.001  frame 50  \"Hit\"\n",
                             "  0:00:00.000\xE2\x80\x93" "0:00:00.003  frames 20\xE2\x80\x93" "120  \"",
                             "  Forward-Backward  0:00:00.000\xE2\x80\x93" "0:00:00.002  frames 10\xE2\x80\x93" "100\n",
                             "    Name                  Take\n", "    Original Artist       Band\n"})
        EXPECT_TRUE(contains(info.out, line)) << line << "\n" << info.out;
    EXPECT_FALSE(contains(info.out, "Creator"));
    EXPECT_TRUE(contains(kxaudio("info --verbose " + quoted(path)).out, "  Size order      little\n"));
    EXPECT_EQ(only(kxaudio("info --json " + quoted(path)))["loops"][0]["typeName"], "Forward-Backward");

    const auto chunks = only(kxaudio("chunks --json " + quoted(path)))["chunks"];
    ASSERT_GE(chunks.size(), 2u);
    EXPECT_EQ(chunks[0]["type"], "JUNK");
    EXPECT_EQ(chunks[0]["position"], 12);
    EXPECT_EQ(chunks[0]["skipped"], true);
    EXPECT_EQ(chunks[1]["type"], "fmt ");
    EXPECT_FALSE(chunks[1].contains("skipped"));
    EXPECT_TRUE(contains(kxaudio("chunks " + quoted(path)).out, "'JUNK' at 12, 28 bytes (skipped)\n"));
}

TEST(KXAudioTool, ConvertManyFilesIntoAFolderOrAPatternWithOrWithoutAnalysisAndArchive) {
    KXTemporaryFolder folder;
    const std::string a = folder.write("a.wav", labelledWave()), b = folder.write("b.wav", labelledWave());
    ASSERT_TRUE(KXFile::createDirectoryAtPath(folder.pathFor("out")));
    const ToolRun into = kxaudio("convert --json -j 2 --format aif " + quoted(a) + " " + quoted(b) + " " + quoted(folder.pathFor("out")));
    ASSERT_EQ(into.status, 0) << into.out;
    const auto entries = nlohmann::json::parse(into.out);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[1]["output"][0], folder.pathFor("out/b.aif"));
    EXPECT_EQ(only(kxaudio("info --json " + quoted(folder.pathFor("out/a.aif"))))["markers"][0]["name"], "Hit");

    const ToolRun pattern = kxaudio("convert " + quoted(a) + " " + quoted(b) + " '{dir}/{name}-{ext}.caf'");
    ASSERT_EQ(pattern.status, 0);
    EXPECT_EQ(pattern.out, folder.pathFor("a-wav.caf") + "\n" + folder.pathFor("b-wav.caf") + "\n");
    // Several inputs need a folder or a pattern, and two inputs cannot share an output.
    EXPECT_EQ(kxaudio("convert " + quoted(a) + " " + quoted(b) + " " + quoted(folder.pathFor("c.wav"))).status, 2);
    EXPECT_EQ(kxaudio("convert " + quoted(a) + " " + quoted(a) + " " + quoted(folder.pathFor("out"))).status, 2);

    // The analysis ('KXAn') and the archive of what AIFF has no field for ('KXmd': the loudness).
    const auto types = [&](const std::string& options) {
        const std::string out = folder.pathFor("x.aif");
        EXPECT_EQ(kxaudio("convert --loudness " + options + " " + quoted(a) + " " + quoted(out)).status, 0);
        std::string found;
        const auto listed = only(kxaudio("chunks --json " + quoted(out)));
        for (const auto& chunk : listed["chunks"])
            found += chunk["type"].get<std::string>() + " ";
        return found;
    };
    const std::string plain = types("");
    EXPECT_TRUE(contains(plain, "KXAn") && contains(plain, "KXmd")) << plain;
    const std::string without = types("--no-analysis --no-archive");
    EXPECT_FALSE(contains(without, "KXAn") || contains(without, "KXmd")) << without;
    EXPECT_TRUE(contains(without, "MARK")) << without;
}

TEST(KXAudioTool, TagChangesLabelsAndMetadataAndLeavesTheSamplesAndEveryOtherChunkAsTheyWere) {
    KXTemporaryFolder folder;
    const std::string path = folder.write("take.wav", labelledWave());
    const auto before = KXFile::dataWithContentsOfPath(path, 1 << 20);
    ASSERT_TRUE(before);
    const auto payloads = [&](const KXData& bytes) {
        // Every chunk but the label and metadata ones, by type, as the file holds it.
        std::map<std::string, KXData> found;
        const std::string copy = folder.write("copy.wav", bytes);
        const auto listed = only(kxaudio("chunks --json " + quoted(copy)));
        for (const auto& chunk : listed["chunks"]) {
            const std::string type = chunk["type"];
            if (type == "LIST" || type == "cue " || type == "smpl" || type == "JUNK" || type == "KXmd") continue;
            const std::size_t start = chunk["position"].get<std::size_t>() + 8, length = chunk["length"];
            found[type] = KXData(bytes.begin() + std::ptrdiff_t(start), bytes.begin() + std::ptrdiff_t(start + length));
        }
        return found;
    };
    const ToolRun tagged = kxaudio("tag " + quoted(path) +
                                   " --set 'Original Artist=The Band' --remove metaName --remove-marker 9"
                                   " --add-marker 0.002:Drop --add-loop 0.001:0.004:backward");
    ASSERT_EQ(tagged.status, 0);
    EXPECT_EQ(tagged.out, path + ": header updated rewritten\n");
    const auto after = KXFile::dataWithContentsOfPath(path, 1 << 20);
    EXPECT_EQ(payloads(*after), payloads(*before));  // 'fmt ' and 'data' byte for byte
    EXPECT_EQ(payloads(*after).count("data"), 1u);
    const auto info = only(kxaudio("info --json " + quoted(path)));
    EXPECT_EQ(info["metadata"]["originalArtist"], "The Band");
    EXPECT_FALSE(info["metadata"].contains("metaName"));
    ASSERT_EQ(info["markers"].size(), 1u);
    EXPECT_EQ(info["markers"][0]["name"], "Drop");
    ASSERT_EQ(info["loops"].size(), 2u);
    EXPECT_EQ(info["loops"][1]["typeName"], "Backward");
    EXPECT_EQ(info["regions"].size(), 1u);

    // Again: the padding left last time takes it in place.
    EXPECT_EQ(kxaudio("tag --clear-labels --set originalArtist=Solo " + quoted(path)).out, path + ": header updated in place\n");
    const auto cleared = only(kxaudio("info --json " + quoted(path)));
    EXPECT_TRUE(cleared["markers"].empty() && cleared["loops"].empty() && cleared["regions"].empty());
    EXPECT_EQ(payloads(*KXFile::dataWithContentsOfPath(path, 1 << 20)), payloads(*before));

    // A marker the file does not have fails that file; options that do not parse are usage errors.
    EXPECT_EQ(kxaudio("tag --remove-marker 77 " + quoted(path)).status, 1);
    EXPECT_EQ(kxaudio("tag --add-loop 3:1 " + quoted(path)).status, 2);
    EXPECT_EQ(kxaudio("tag --add-marker soon " + quoted(path)).status, 2);
    EXPECT_EQ(kxaudio("tag --set novalue " + quoted(path)).status, 2);
}

TEST(KXAudioTool, EditSavesTheOperationsAsADocumentThatTheOtherCommandsOpen) {
    KXTemporaryFolder folder;
    const auto ramp = [](std::uint32_t frame, std::uint32_t) { return float(frame % 1000) / 1000.0f; };
    const std::string take = KXTestSamples::writeSignalFile(folder, "take.wav", 1, 1000, 1000, true, ramp);
    folder.write("ops.json", bytesOf(R"(["silence 0 0.1", ["gain", 0.5, -6.0206]])"));
    const ToolRun run = kxaudio("edit " + quoted(take) + " --save " + quoted(folder.pathFor("Doc")) +
                                " --op 'delete 0.2 0.4' --ops " + quoted(folder.pathFor("ops.json")) + " --json");
    ASSERT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(nlohmann::json::parse(run.out)["frames"], 900);
    // The original is untouched; the document plays the edits.
    EXPECT_EQ(KXAudioFile::audioFileWithPath(take)->frames(), 1000u);
    auto document = KXAudioFile::audioFileWithPath(folder.pathFor("Doc.tess"));
    ASSERT_TRUE(document);
    std::vector<float> samples(900);
    std::int32_t size = 900;
    document->readSamplesToBuffer(samples.data(), 0, size, 0);
    ASSERT_EQ(size, 900);
    EXPECT_EQ(samples[99], 0.0f);                          // the silence
    EXPECT_EQ(samples[100], 0.0f);                         // the ramp's first frame
    EXPECT_EQ(samples[299], 0.199f);                       // up to the deletion
    EXPECT_NEAR(samples[300], 0.4f * 0.5f, 1e-6f);         // after it, 6 dB down from 0.5 s on
    EXPECT_NEAR(samples[899], 0.999f * 0.5f, 1e-6f);
    const ToolRun info = kxaudio("info --json " + quoted(folder.pathFor("Doc.tess")));
    EXPECT_EQ(only(info)["format"], "TESS") << info.out;

    const ToolRun refused = kxaudio("edit " + quoted(take) + " --save " + quoted(folder.pathFor("Bad")) +
                                    " --op 'cut 0.5 0.1' --json");
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(nlohmann::json::parse(refused.out)["error"]["reason"], "the range ends before it starts: cut 0.5 0.1");
    EXPECT_FALSE(KXFile::existsAtPath(folder.pathFor("Bad.tess")));
}
