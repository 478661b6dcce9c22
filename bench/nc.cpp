#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "backends/zuCacheFileInterface.h"
#include "bench/paths.h"

namespace kelbench {
namespace {

using kelsdk::zuCacheData;
using Library = kelsdk::zuCacheFileInterface;

constexpr int kTicksPerFrame = 250;

// A writer looks at every byte of a held pose again.
constexpr double kMostWritten = 20e9;

// Writes every frame; what a held pose repeats takes no room again.
void WriteCache(const Workload& workload, const std::string& folder, const char* tag, EValue stored,
                Library::cacheFileFormat format) {
  Library cache;
  unsigned int channel = 0;
  Require(cache.initFileWrite(folder.c_str(), "shot", format, tag, kTicksPerFrame) &&
              cache.addChannel("P", "Points",
                               stored == EValue::eFloat ? zuCacheData::eNCFloatVectorArray
                                                        : zuCacheData::eNCDoubleVectorArray,
                               channel),
          "begin");
  std::vector<float> floats(workload.valueCount());
  std::vector<double> doubles(workload.valueCount());
  for (unsigned int frame = 0; frame < workload.frames(); ++frame) {
    const float* const pose = workload.Pose(workload.PoseOf(frame));
    if (frame == workload.FirstFrame(workload.PoseOf(frame))) {
      std::copy_n(pose, floats.size(), floats.begin());
      std::copy_n(pose, doubles.size(), doubles.begin());
    }
    void* const array =
        stored == EValue::eFloat ? static_cast<void*>(floats.data()) : doubles.data();
    const int tick = static_cast<int>(frame) * kTicksPerFrame;
    Require(cache.beginWriteAtTime(tick) &&
                cache.addArrayData(channel, tick, array, workload.points()) &&
                cache.endWriteAtTime(),
            "write");
  }
  Require(cache.endFileWrite(), "end");
}

// Where the arrays of a file's first channel stand, one for each sample.
struct Place {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
};
std::vector<Place> ReadIndex(const std::string& path) {
  const BareFile file(path, O_RDONLY);
  std::uint64_t trailer[8];
  std::uint64_t entry[8];
  file.Read(trailer, sizeof trailer, std::filesystem::file_size(path) - sizeof trailer);
  file.Read(entry, sizeof entry, trailer[1]);
  std::vector<std::uint64_t> index((entry[2] & 0xffffffff) * 4);
  file.Read(index.data(), index.size() * sizeof index[0], entry[0]);
  std::vector<Place> places;
  for (std::size_t i = 0; i < index.size(); i += 4) places.push_back({index[i + 1], index[i + 2]});
  return places;
}

// As much as is stored, by bare reads.
Contender BareReadingStored(const Workload& workload, const std::string& path,
                            const std::vector<Place>& places) {
  const auto file = std::make_shared<BareFile>(path, O_RDONLY);
  const auto bytes = std::make_shared<std::vector<char>>(workload.frameBytes() * 2);
  return {"read", VisitPoses(workload, [=](unsigned int frame, auto) {
            file->Read(bytes->data(), places[frame].size, places[frame].offset);
            Keep(bytes->data());
          })};
}

void MeasureReads(Table& table, Case& in, const std::string& tag, EValue stored) {
  const Workload& workload = in.workload;
  const bool isFloat = stored == EValue::eFloat;
  const std::string fetch = tag + (isFloat ? " fetch" : " doubles");
  const std::string open = tag + " open";
  const bool wantsOpen = isFloat && workload.name().empty() && table.Wants(open);
  if (!table.Wants(fetch) && !wantsOpen) return;
  const std::string folder = in.scratch.File(fetch) + "/";
  std::filesystem::create_directory(folder);
  WriteCache(workload, folder, tag.c_str(), stored, Library::eSingleFile);
  const std::string path = folder + "shot." + tag;
  const auto cache = std::make_shared<Object>(KelCache::eNCFormat, folder + "shot.xml");
  if (wantsOpen) {
    table.Row(open, workload, kOpenings, 0, 0,
              Together(Opening(cache), BareOpening(path), in.Floats().Openers(kOpenings)));
  }
  if (table.Wants(fetch)) {
    Require((*cache)->OpenFileForRead(nullptr), "open");
    const std::vector<Place> places = ReadIndex(path);
    std::vector<std::uint64_t> offsets;
    double storedBytes = 0;
    for (unsigned int pose = 0; pose < workload.poses(); ++pose) {
      offsets.push_back(places[workload.FirstFrame(pose)].offset);
      storedBytes += double(places[workload.FirstFrame(pose)].size);
    }
    const std::size_t unitBytes = workload.valueCount() * SizeOf(stored);
    const bool compact = tag == "ncc";
    table.Row(fetch, workload, workload.poses(), unitBytes,
              compact ? storedBytes / double(unitBytes) / workload.poses() : 0,
              Together(Fetching(workload, cache),
                       compact ? BareReadingStored(workload, path, places)
                               : BareReading(workload, path, stored, offsets),
                       (isFloat ? in.Floats() : in.Doubles()).Readers(EValue::eFloat)));
  }
  std::filesystem::remove_all(folder);
}

// A data file for each frame: fetching opens one after the other, as the baseline does.
void MeasureFiles(Table& table, Case& in) {
  const Workload& workload = in.workload;
  if (!table.Wants("ncx files fetch") || workload.frames() > 1000) return;
  const std::string folder = in.scratch.File("files") + "/";
  std::filesystem::create_directory(folder);
  WriteCache(workload, folder, "ncx", EValue::eFloat, Library::eFilePerFrame);
  const auto cache = std::make_shared<Object>(KelCache::eNCFormat, folder + "shot.xml");
  Require((*cache)->OpenFileForRead(nullptr), "open");
  const std::uint64_t offset = ReadIndex(folder + "shotFrame0.ncx")[0].offset;
  const auto bytes = std::make_shared<std::vector<float>>(workload.valueCount());
  const Contender bare = {"read", VisitPoses(workload, [=, &workload](unsigned int frame, auto) {
                            const BareFile file(
                                folder + "shotFrame" + std::to_string(frame) + ".ncx", O_RDONLY);
                            file.Read(bytes->data(), workload.frameBytes(), offset);
                            Keep(bytes->data());
                          })};
  table.Row("ncx files fetch", workload, workload.poses(), workload.frameBytes(), 0,
            {Fetching(workload, cache), bare});
  std::filesystem::remove_all(folder);
}

void MeasureWrite(Table& table, Case& in, const std::string& tag) {
  const Workload& workload = in.workload;
  const std::string row = tag + " write";
  const std::string save = tag + " save";
  if (!workload.IsWhole() || !(table.Wants(row) || table.Wants(save))) return;
  const std::string folder = in.scratch.File(row) + "/";
  std::filesystem::create_directory(folder);
  const auto floats = std::make_shared<std::vector<float>>(
      workload.Pose(0), workload.Pose(0) + workload.poses() * workload.valueCount());
  const auto cache = std::make_shared<Object>(KelCache::eNCFormat, folder + "shot.xml");
  const auto open = [=] {
    Require((*cache)->OpenFileForWrite(KelCache::eNCSingleFile, 24, "P",
                                       tag == "ncc" ? KelCache::eNCBinaryC : KelCache::eNCBinaryX,
                                       KelCache::eNCFloatVectorArray, "Points", nullptr),
            "open for writing");
  };
  const auto clean = [=] {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
  };
  const Contender ours = {
      "write",
      VisitPoses(workload,
                 [=, &workload](unsigned int frame, auto) {
                   KelTime time = KelTime::FromFrame(frame);
                   Require((*cache)->Write(0, time, &(*floats)[frame * workload.valueCount()],
                                           workload.points(), nullptr),
                           "write");
                 }),
      open, [=] {
        (*cache)->CloseFile(nullptr);
        clean();
      }};
  const auto file = std::make_shared<std::unique_ptr<BareFile>>();
  const std::string barePath = in.scratch.File("bare");
  const Contender bare = {
      "bare write",
      VisitPoses(workload,
                 [=, &workload](std::uint64_t frame, auto) {
                   (*file)->Write(&(*floats)[frame * workload.valueCount()], workload.frameBytes(),
                                  frame * workload.frameBytes());
                 }),
      [=] { *file = std::make_unique<BareFile>(barePath, O_WRONLY | O_CREAT | O_TRUNC); },
      [=] {
        file->reset();
        std::remove(barePath.c_str());
      }};
  if (table.Wants(row)) {
    table.Row(row, workload, workload.frames(), workload.frameBytes(), 0,
              Together(ours, bare, PeerWriters(workload, in.scratch)));
  }
  if (!table.Wants(save)) return;
  table.Row(save, workload, workload.frames(), workload.frameBytes(), 0,
            {Saving(
                 ours, [=] { (*cache)->CloseFile(nullptr); }, clean),
             Saving(
                 bare, [=] { (*file)->Sync(); }, bare.after)});
}

}  // namespace

void MeasureNC(Table& table, Case& in) {
  if (double(in.workload.frames()) * double(in.workload.frameBytes()) > kMostWritten) return;
  for (const char* tag : {"ncx", "ncc"}) {
    for (const EValue stored : {EValue::eFloat, EValue::eDouble}) {
      MeasureReads(table, in, tag, stored);
    }
    MeasureWrite(table, in, tag);
  }
  MeasureFiles(table, in);
}

void MeasureCompact(Table& table, Case& in) {
  MeasureReads(table, in, "ncc", EValue::eFloat);
  MeasureWrite(table, in, "ncc");
}

void MeasureConversions(Table& table, Case& in) {
  const Workload& workload = in.workload;
  if (!workload.IsWhole()) return;
  const struct {
    const char* row;
    KelCache::EFileFormat from;
    KelCache::ENCBinaryFormat tag;
    const char* data;
  } rows[] = {{"pc2 to ncx", KelCache::ePC2Format, KelCache::eNCBinaryX, "shot.ncx"},
              {"pc2 to ncc", KelCache::ePC2Format, KelCache::eNCBinaryC, "shot.ncc"},
              {"ncx to pc2", KelCache::eNCFormat, KelCache::eNCBinaryX, "shot.ncx"},
              {"ncc to pc2", KelCache::eNCFormat, KelCache::eNCBinaryC, "shot.ncc"}};
  for (const auto& row : rows) {
    if (!table.Wants(row.row)) continue;
    const bool toNC = row.from == KelCache::ePC2Format;
    const Scratch& scratch = in.scratch;
    const std::string pc2 = scratch.File("shot.pc2");
    const std::string data = scratch.File(row.data);
    const std::string copy = scratch.File("copy");
    {
      const Object made(KelCache::ePC2Format, pc2);
      std::vector<double> doubles(workload.valueCount());
      Require(made->OpenFileForWrite(0, 24, workload.frames(), workload.points(), nullptr), "open");
      for (unsigned int frame = 0; frame < workload.frames(); ++frame) {
        std::copy_n(workload.Pose(frame), doubles.size(), doubles.begin());
        Require(made->Write(frame, doubles.data(), nullptr), "write");
      }
      made->CloseFile(nullptr);
      Require(toNC || made->ConvertFromPC2ToNC(KelCache::eNCSingleFile, 24, row.tag, nullptr),
              "convert");
    }
    const auto cache = std::make_shared<Object>(row.from, toNC ? pc2 : scratch.File("shot.xml"));
    const Contender ours = {
        "convert", [=] {
          Require(toNC ? (*cache)->ConvertFromPC2ToNC(KelCache::eNCSingleFile, 24, row.tag, nullptr)
                       : (*cache)->ConvertFromNCToPC2(24, 0, nullptr),
                  "convert");
        }};
    const std::string source = toNC ? pc2 : data;
    const Contender bare = {"copy",
                            [=] {
                              std::filesystem::copy_file(source, copy);
                              const BareFile file(copy, O_WRONLY);
                              Require(::fsync(file.Descriptor()) == 0, "fsync");
                            },
                            [=] { std::remove(copy.c_str()); }};
    table.Row(row.row, workload, workload.frames(), workload.frameBytes(), 0, {ours, bare});
    for (const std::string& name : {pc2, data, copy, scratch.File("shot.xml")}) {
      std::remove(name.c_str());
    }
  }
}

void MeasureChannels(Table& table, unsigned int points) {
  constexpr unsigned int kChannels = 8;
  const Workload workload = Workload::Cloth(points, 100);
  const Scratch scratch;
  if (!table.Wants("ncx 8 channels")) return;
  std::vector<float> array(workload.valueCount());
  {
    Library cache;
    unsigned int channel = 0;
    Require(cache.initFileWrite(scratch.folder().c_str(), "shot", Library::eSingleFile, "ncx",
                                kTicksPerFrame),
            "begin");
    for (unsigned int i = 0; i < kChannels; ++i) {
      Require(cache.addChannel(("c" + std::to_string(i)).c_str(), "",
                               zuCacheData::eNCFloatVectorArray, channel),
              "channel");
    }
    for (unsigned int frame = 0; frame < workload.frames(); ++frame) {
      const int tick = static_cast<int>(frame) * kTicksPerFrame;
      std::copy_n(workload.Pose(workload.PoseOf(frame)), array.size(), array.begin());
      Require(cache.beginWriteAtTime(tick), "write");
      for (unsigned int i = 0; i < kChannels; ++i) {
        array[0] = static_cast<float>(frame * kChannels + i);
        Require(cache.addArrayData(i, tick, array.data(), points), "write");
      }
    }
    Require(cache.endFileWrite(), "end");
  }
  const auto reader = [&](bool blocks) {
    const auto cache = std::make_shared<Library>();
    Require(cache->initFileRead("shot", scratch.folder().c_str()), "open");
    cache->setOptimizeMultiChannelRead(blocks);
    return Contender{blocks ? "blocks" : "one by one", [&, cache] {
                       for (unsigned int frame = 0; frame < workload.frames(); ++frame) {
                         for (unsigned int i = 0; i < kChannels; ++i) {
                           void* data = array.data();
                           unsigned int count = points;
                           Require(cache->getArrayDataAtTime(
                                       i, static_cast<int>(frame) * kTicksPerFrame, data, count) &&
                                       array[0] == static_cast<float>(frame * kChannels + i),
                                   "read");
                         }
                       }
                     }};
  };
  table.Row("ncx 8 channels", workload, workload.frames(), workload.frameBytes() * kChannels, 0,
            {reader(true), reader(false)});
}

}  // namespace kelbench
