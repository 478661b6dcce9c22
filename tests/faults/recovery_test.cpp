// What recovery makes of a dead writer's remains beside whatever stands in its place.
#include <map>

#include "tests/faults/stores.h"

namespace kelsdk::test {
namespace {

constexpr Animation kOlder = {1, 2};
constexpr Animation kDied = {2, 3};

class Recovery : public StoreTest, public testing::WithParamInterface<Store> {
 protected:
  void Die(const Animation& animation) {
    WriteCache(store_, path_, animation, steps_, false);
    ::usleep(20000);  // the system's file times are that coarse
  }
  unsigned int Recovered(bool force = false) {
    unsigned int samples = 0;
    const bool recovered = Recover(store_, path_, work_, force, samples);
    EXPECT_EQ(recovered, samples > 0);
    return samples;
  }
  std::string Named(const std::string& base) const { return base + ending_; }
  bool Holds(const std::string& base, const Animation& animation) const {
    return ReadCache(store_, work_ + Named(base)) == animation.All() &&
           Verifies(store_, Named(base));
  }

  const Store& store_ = GetParam();
  const std::string path_ = PathOf(store_);
  const std::string ending_ = path_.substr(path_.size() - 4);
};

TEST_P(Recovery, LosesNothingThatStands) {
  enum { eNothing, eWhole, eCut, eForeign, eNoData, eOthersData, eNoHeader, eNone, eNotes };
  const bool isNC = store_.IsNC();
  const struct {
    const char* why;
    int standing;
    bool force;
    const char* savedAs;
    const char* keptAs;  // the base name of what stood there
  } rows[] = {
      {"nothing", eNothing, false, "shot", "shot"},
      {"whole", eWhole, false, "shot.recovered2", "shot"},
      {"whole, by force", eWhole, true, "shot", "shot.before-recover2"},
      {"cut short", eCut, false, "shot", "shot.before-recover2"},
      {"of another kind", eForeign, false, isNC ? "shot.recovered2" : "shot",
       isNC ? "shot" : "shot.before-recover2"},
      {"without its data", eNoData, false, "shot", "shot.before-recover2"},
      {"with another's data", eOthersData, false, "shot", "shot.before-recover2"},
      {"with data that is none", eNoHeader, false, "shot", "shot.before-recover2"},
      {"data alone", eNone, false, "shot", "shot.before-recover2"},
      {"notes in the place of data", eNotes, false, "shot.recovered2", "shot"},
  };
  const bool perFrame = store_.files == KelCache::eNCFilePerFrame;
  const std::string data = std::string(perFrame ? "Frame1." : ".") +
                           (store_.binary == KelCache::eNCBinaryX ? "ncx" : "ncc");
  for (const auto& row : rows) {
    if (row.standing >= eNoData && !isNC) continue;
    SCOPED_TRACE(row.why);
    fs::remove_all(work_);
    fs::create_directory(work_);
    if (row.standing != eNothing) WriteCache(store_, path_, kOlder, steps_);
    const std::vector<std::string> names = NamesIn(work_);
    for (const char* taken : {"shot.recovered", "shot.before-recover"}) {
      WriteCache(store_, work_ + Named(taken), kOlder, steps_);
    }
    const auto time = fs::last_write_time(row.standing != eNothing ? path_ : work_);
    Die(kDied);
    switch (row.standing) {
      case eCut: fs::resize_file(path_, isNC ? 60 : fs::file_size(path_) - 1); break;
      case eForeign: WriteBytes(path_, {'<', 'a', '/', '>'}); break;
      case eNoData: fs::remove(work_ + "shot" + data); break;
      case eOthersData:
        WriteBytes(work_ + "shot" + data, ReadBytes(work_ + "shot.recovered" + data));
        break;
      case eNotes:
      case eNoHeader: WriteBytes(work_ + "shot" + data, {'x'}); break;
      default: break;
    }
    if (row.standing >= eNone) fs::remove(path_);
    if (Exists(path_)) fs::last_write_time(path_, time);
    std::map<std::string, Bytes> standing;  // by what follows the base name
    for (const std::string& name : names) {
      if (Exists(work_ + name)) standing[name.substr(4)] = ReadBytes(work_ + name);
    }
    EXPECT_EQ(Recovered(row.force), kDied.samples);
    EXPECT_TRUE(Holds(row.savedAs, kDied));
    EXPECT_TRUE(Holds("shot.recovered", kOlder) && Holds("shot.before-recover", kOlder));
    for (const auto& [name, bytes] : standing) {
      EXPECT_TRUE(ReadBytes(work_ + row.keptAs + name) == bytes) << row.keptAs << name;
    }
    EXPECT_TRUE(row.standing != eWhole || Holds(row.keptAs, kOlder));
    EXPECT_EQ(Recovered(row.force), 0U) << "only once";
  }
}

TEST_P(Recovery, TakesTheNewestAndLeavesTheLiving) {
  const Animation first = {3, 4};
  const Animation last = {4, 1};
  WriteCache(store_, path_, kOlder, steps_);
  Die(first);
  Die(kDied);
  const CacheObject living(store_.format, path_);
  ASSERT_TRUE(OpenForWrite(store_, living.get(), last));
  ASSERT_TRUE(WriteSample(store_, living.get(), last, 0));
  EXPECT_EQ(Recovered(true), kDied.samples);
  EXPECT_EQ(Recovered(true), 0U) << "the first is older than what stands there now";
  EXPECT_TRUE(Holds("shot", kDied) && Holds("shot.before-recover", kOlder));
  EXPECT_EQ(Recovered(), first.samples);
  EXPECT_TRUE(Holds("shot.recovered", first) && Holds("shot", kDied));
  EXPECT_EQ(Recovered(), 0U) << "the last one lives";
  living->CloseFile(nullptr);
  EXPECT_TRUE(Holds("shot", last));
  ExpectOnlyFilesOfCaches(store_);
}

INSTANTIATE_TEST_SUITE_P(OfRemains, Recovery, testing::ValuesIn(kStores),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace kelsdk::test
