// Opening files built to make a reader do quadratic work: a million empty chunks, tens of
// thousands of cue points, loops, labelled texts and iXML elements, an archived dictionary of
// 100,000 keys. libsndfile opens the same files in the same run (it walks the chunks too).
//
// Targets: every case opens in well under a second, and the million-chunk walk at least 10× faster
// than the 20 s it took when every header was its own read. Medians on the 2-core development
// machine (release build): 466 ms for the million chunks (libsndfile, which keeps none, 42 ms);
// 11-25 ms for the cues, loops, 'labl'/'ltxt' pairs and iXML elements; 53 ms for the 100,000 keys.
// 20,000 'labl'/'ltxt' pairs took 19 s before the label lookups were indexed.

#include <benchmark/benchmark.h>
#include <sndfile.h>

#include <string>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXBase/KXDirectories.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXPropertyList.h"

namespace {

void put32(KXData& bytes, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(std::uint8_t(value >> shift));
}

void chunk(KXData& file, const char* type, const KXData& payload) {
    file.insert(file.end(), type, type + 4);
    put32(file, std::uint32_t(payload.size()));
    file.insert(file.end(), payload.begin(), payload.end());
    if (payload.size() % 2) file.push_back(0);
}

// A mono 16-bit 44.1 kHz WAVE file of 100 frames, then the extra chunks.
std::string waveFile(const std::string& name, void (*extra)(KXData&)) {
    const std::string path = KXFile::pathByAppendingComponent(KXDirectories::temporaryDirectory(), "kxaudio-bench-" + name + ".wav");
    KXData file = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E'};
    chunk(file, "fmt ", {1, 0, 1, 0, 0x44, 0xAC, 0, 0, 0x88, 0x58, 1, 0, 2, 0, 16, 0});
    chunk(file, "data", KXData(200, 0));
    extra(file);
    const std::uint32_t size = std::uint32_t(file.size() - 8);
    for (int i = 0; i < 4; ++i) file[4 + std::size_t(i)] = std::uint8_t(size >> (8 * i));
    if (!KXFile::writeDataToPath(file, path)) return {};
    return path;
}

void emptyChunks(KXData& file) {
    for (int i = 0; i < 1000000; ++i) chunk(file, "abcd", {});
}

void unnamedCues(KXData& file) {
    KXData cue;
    put32(cue, 80000);
    for (std::uint32_t i = 0; i < 80000; ++i)
        for (std::uint32_t field : {i + 1, i, 0u, 0u, 0u, i}) put32(cue, field);
    chunk(file, "cue ", cue);
}

void loops(KXData& file) {
    KXData smpl(28, 0);
    put32(smpl, 100000);
    put32(smpl, 0);
    for (std::uint32_t i = 0; i < 100000; ++i)
        for (std::uint32_t field : {0u, 0u, i, i + 10, 0u, 0u}) put32(smpl, field);
    chunk(file, "smpl", smpl);
}

void labelledTexts(KXData& file) {
    KXData cue, adtl = {'a', 'd', 't', 'l'};
    put32(cue, 20000);
    for (std::uint32_t i = 0; i < 20000; ++i) {
        for (std::uint32_t field : {i + 1, i, 0u, 0u, 0u, i}) put32(cue, field);
        KXData labl, ltxt;
        put32(labl, i + 1);
        const std::string name = "name " + std::to_string(i);
        labl.insert(labl.end(), name.begin(), name.end());
        labl.push_back(0);
        put32(ltxt, i + 1);
        put32(ltxt, 5);
        ltxt.resize(20, 0);
        chunk(adtl, "labl", labl);
        chunk(adtl, "ltxt", ltxt);
    }
    chunk(file, "cue ", cue);
    chunk(file, "LIST", adtl);
}

void repeatedIXML(KXData& file) {
    std::string xml = "<BWFXML>";
    for (int i = 0; i < 160000; ++i) xml += "<NOTE>x</NOTE>";
    xml += "</BWFXML>";
    chunk(file, "iXML", KXData(xml.begin(), xml.end()));
}

void archivedKeys(KXData& file) {
    KXDictionary keys;
    for (int i = 0; i < 100000; ++i) keys.setObject(i, "key " + std::to_string(i));
    chunk(file, "KXmd", KXPropertyList::binaryData(keys));
}

struct HostileFile {
    const char* name;
    void (*extra)(KXData&);
};

const HostileFile kFiles[] = {
    {"1,000,000 empty chunks", emptyChunks}, {"80,000 unnamed cue points", unnamedCues},
    {"100,000 loops", loops},                 {"20,000 labl-ltxt pairs", labelledTexts},
    {"160,000 repeated iXML elements", repeatedIXML}, {"a KXmd of 100,000 keys", archivedKeys},
};

void openOurs(benchmark::State& state, const HostileFile& f) {
    const std::string path = waveFile(std::to_string(&f - kFiles), f.extra);
    for (auto _ : state) {
        auto file = KXAudioFile::audioFileWithPath(path);
        if (!file) state.SkipWithError("the file does not open");
        benchmark::DoNotOptimize(file);
    }
    KXFile::deleteFileAtPath(path);
}

void openLibsndfile(benchmark::State& state, const HostileFile& f) {
    const std::string path = waveFile(std::to_string(&f - kFiles), f.extra);
    for (auto _ : state) {
        SF_INFO info{};
        SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
        benchmark::DoNotOptimize(file);
        if (file) sf_close(file);
    }
    KXFile::deleteFileAtPath(path);
}

}  // namespace

// Registered from the benchmark program's main (bench_converter.cpp).
void registerHostileBenchmarks() {
    for (const HostileFile& f : kFiles) {
        const std::string name = std::string("open ") + f.name;
        benchmark::RegisterBenchmark((name + "/KXAudioFile").c_str(), openOurs, f)->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark((name + "/libsndfile").c_str(), openLibsndfile, f)->Unit(benchmark::kMillisecond)->UseRealTime();
    }
}
