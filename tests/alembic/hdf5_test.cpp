// Archives in the HDF5 container: what writers other than the usual one may have stored, what is
// refused, and that separate objects keep to themselves.
#include <hdf5.h>

#include <filesystem>
#include <functional>
#include <thread>

#include "backends/AlembicInterface.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {
namespace {

using Floats = std::vector<float>;

// An archive of one object /dot with the property P, arrays of three floats, made call by call.
class Writer {
 public:
  explicit Writer(const std::string& path, hsize_t before = 0, int version = -8,
                  H5F_libver_t container = H5F_LIBVER_EARLIEST) {
    const hid_t creation = H5Pcreate(H5P_FILE_CREATE);
    H5Pset_userblock(creation, before);
    const hid_t access = H5Pcreate(H5P_FILE_ACCESS);
    H5Pset_libver_bounds(access, container, H5F_LIBVER_LATEST);
    file_ = H5Fcreate(path.c_str(), H5F_ACC_TRUNC, creation, access);
    H5Pclose(access);
    H5Pclose(creation);
    Attribute(file_, "abc_version", H5T_STD_I32LE, {version});
    Attribute(file_, "abc_release_version", H5T_STD_I32LE, {10812});
    top_ = Group(file_, "ABC");
    dot = Group(top_, "dot");
    properties = Group(dot, ".prop");
  }
  ~Writer() {
    for (const hid_t group : groups_) H5Gclose(group);
    H5Fclose(file_);
  }

  hid_t Group(hid_t at, const char* name) {
    groups_.push_back(H5Gcreate2(at, name, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
    return groups_.back();
  }

  static void Attribute(hid_t at, const char* name, hid_t type, const std::vector<int>& values) {
    const hsize_t count = values.size();
    const hid_t space = H5Screate_simple(1, &count, nullptr);
    const hid_t attribute = H5Acreate2(at, name, type, space, H5P_DEFAULT, H5P_DEFAULT);
    H5Awrite(attribute, H5T_NATIVE_INT, values.data());
    H5Aclose(attribute);
    H5Sclose(space);
  }

  // The header of P: `more` are the words behind the first.
  void Header(std::vector<int> more = {}, int first = 0x3aa) {
    more.insert(more.begin(), first);
    Attribute(properties, "P.info", H5T_STD_U32LE, more);
  }

  // A data set, with values or without.
  static void Set(hid_t at, const char* name, hsize_t count, const Floats& values,
                  hid_t creation = H5P_DEFAULT, hid_t type = H5T_IEEE_F32LE) {
    const hid_t space = H5Screate_simple(1, &count, nullptr);
    const hid_t set = H5Dcreate2(at, name, type, space, H5P_DEFAULT, creation, H5P_DEFAULT);
    if (!values.empty())
      H5Dwrite(set, H5T_NATIVE_FLOAT, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data());
    H5Dclose(set);
    H5Sclose(space);
  }

  // Creation settings with chunks of so many values.
  static hid_t Chunked(hsize_t values, int deflate) {
    const hid_t creation = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(creation, 1, &values);
    if (deflate != 0) H5Pset_deflate(creation, static_cast<unsigned>(deflate));
    return creation;
  }

  hid_t dot;
  hid_t properties;

 private:
  hid_t file_;
  hid_t top_;
  std::vector<hid_t> groups_;
};

Floats Ramp(std::size_t count) {
  Floats values(count);
  for (std::size_t i = 0; i < count; ++i) values[i] = float(i) / 4;
  return values;
}

class Hdf5Archives : public FileTest {
 protected:
  std::string Path() const { return folder_.File("made.abc"); }

  // Why it is refused, else what Verify reports.
  std::string Words() const {
    std::string words;
    AlembicInterface archive(true);
    if (!archive.Open(Path().c_str(), 1)) return archive.GetErrorString();
    archive.Verify(AddLine, &words);
    return words;
  }
};

TEST_F(Hdf5Archives, MayKeepSamplesInPiecesAndDeflated) {
  const Floats values = Ramp(300);
  const struct {
    hsize_t chunk;
    int deflate;
  } kWays[] = {{300, 0}, {300, 9}, {70, 0}, {70, 1}, {299, 6}};
  for (const auto& way : kWays) {
    SCOPED_TRACE(std::to_string(way.chunk) + " values, deflate " + std::to_string(way.deflate));
    {
      Writer writer(Path());
      const hid_t creation = Writer::Chunked(way.chunk, way.deflate);
      writer.Header();
      Writer::Set(writer.properties, "P.smp0", values.size(), values, creation);
      H5Pclose(creation);
    }
    EXPECT_EQ(Words(), "");
    AlembicInterface archive(true);
    ASSERT_TRUE(archive.Open(Path().c_str(), 1));
    EXPECT_EQ(archive.GetChannelBufferLength(0), 100U);
    for (const unsigned int count : {100U, 37U}) {
      Floats read(std::size_t{count} * 3);
      ASSERT_TRUE(archive.GetChannelBuffer(0, read.data(), count, KelTime()))
          << archive.GetErrorString();
      EXPECT_TRUE(std::equal(read.begin(), read.end(), values.begin()));
    }
    Floats read(300);
    ExpectCost(0, 10, 5, [&](int) { archive.GetChannelBuffer(0, read.data(), 100, KelTime()); });
  }
}

// What writers may store besides, in each version of what the container is made of.
void AddOtherAttributes(hid_t at) {
  const hid_t one = H5Screate(H5S_SCALAR);
  const auto add = [&](const char* name, hid_t type, const void* value) {
    const hid_t attribute = H5Acreate2(at, name, type, one, H5P_DEFAULT, H5P_DEFAULT);
    H5Awrite(attribute, type, value);
    H5Aclose(attribute);
    H5Tclose(type);
  };
  const char* const text = "of any length";
  const hid_t texts = H5Tcopy(H5T_C_S1);
  H5Tset_size(texts, H5T_VARIABLE);
  add("text", texts, &text);
  const char yes = 1;
  const hid_t choice = H5Tenum_create(H5T_NATIVE_CHAR);
  H5Tenum_insert(choice, "yes", &yes);
  add("choice", choice, &yes);
  const struct {
    int first = 1;
    float others[3] = {2, 3, 4};
  } both;
  const hsize_t three = 3;
  const hid_t others = H5Tarray_create2(H5T_NATIVE_FLOAT, 1, &three);
  const hid_t compound = H5Tcreate(H5T_COMPOUND, sizeof both);
  H5Tinsert(compound, "first", 0, H5T_NATIVE_INT);
  H5Tinsert(compound, "others", sizeof both.first, others);
  H5Tclose(others);
  add("compound", compound, &both);
  const hid_t opaque = H5Tcreate(H5T_OPAQUE, sizeof yes);
  H5Tset_tag(opaque, "tagged");
  add("opaque", opaque, &yes);
  H5Sclose(one);
}

TEST_F(Hdf5Archives, OfOldAndNewVersionsAreSound) {
  for (const H5F_libver_t version : {H5F_LIBVER_EARLIEST, H5F_LIBVER_V18, H5F_LIBVER_LATEST}) {
    SCOPED_TRACE(version);
    constexpr int kSamples = 20;
    {
      Writer writer(Path(), 0, -8, version);
      AddOtherAttributes(writer.properties);
      writer.Header({kSamples});
      const hid_t chunked = Writer::Chunked(7, 1);
      Writer::Set(writer.properties, "P.smp0", 30, Ramp(30), chunked);
      const hid_t rest = writer.Group(writer.properties, "P.smpi");
      for (int i = 1; i < kSamples; ++i) {
        char name[8];
        std::snprintf(name, sizeof name, "%04d", i);
        Writer::Set(rest, name, 30, Ramp(30), i % 2 != 0 ? chunked : H5P_DEFAULT);
      }
      H5Pclose(chunked);
    }
    EXPECT_EQ(Words(), "");
  }
}

// Each archive is sound but for one thing.
const struct {
  const char* why;
  std::function<void(Writer&)> make;
  const char* words;
} kRefused[] = {
    {"soft link for a child",
     [](Writer& w) { H5Lcreate_soft("/ABC", w.dot, "child", H5P_DEFAULT, H5P_DEFAULT); },
     "leads elsewhere"},
    {"another file for a child",
     [](Writer& w) {
       H5Lcreate_external("/etc/passwd", "/", w.dot, "child", H5P_DEFAULT, H5P_DEFAULT);
     },
     "leads elsewhere"},
    {"child that is its own parent",
     [](Writer& w) { H5Lcreate_hard(w.dot, ".", w.dot, "child", H5P_DEFAULT, H5P_DEFAULT); },
     "listed twice"},
    {"data set for a child", [](Writer& w) { Writer::Set(w.dot, "child", 1, {1}); },
     "stands for a group"},
    {"soft link for a sample",
     [](Writer& w) {
       w.Header();
       H5Lcreate_soft("/P", w.properties, "P.smp0", H5P_DEFAULT, H5P_DEFAULT);
     },
     "no data set"},
    {"group for a sample",
     [](Writer& w) {
       w.Header();
       w.Group(w.properties, "P.smp0");
     },
     "stands for a data set"},
    {"values in another file",
     [](Writer& w) {
       w.Header();
       const hid_t creation = H5Pcreate(H5P_DATASET_CREATE);
       H5Pset_external(creation, "/etc/passwd", 0, 12);
       Writer::Set(w.properties, "P.smp0", 3, {}, creation);
       H5Pclose(creation);
     },
     "kept elsewhere"},
    {"values of another data set",
     [](Writer& w) {
       w.Header();
       const hid_t creation = H5Pcreate(H5P_DATASET_CREATE);
       const hsize_t count = 3;
       const hid_t space = H5Screate_simple(1, &count, nullptr);
       H5Pset_virtual(creation, space, "/etc/passwd", "a", space);
       Writer::Set(w.properties, "P.smp0", 3, {}, creation);
       H5Sclose(space);
       H5Pclose(creation);
     },
     "kept elsewhere"},
    {"values never stored",
     [](Writer& w) {
       w.Header();
       Writer::Set(w.properties, "P.smp0", 3 << 28, {});
     },
     "never stored"},
    {"chunks never stored",
     [](Writer& w) {
       w.Header();
       const hid_t creation = Writer::Chunked(3 << 20, 1);
       Writer::Set(w.properties, "P.smp0", 3ULL << 30, {}, creation);
       H5Pclose(creation);
     },
     "never stored"},
    {"far too many chunks",
     [](Writer& w) {
       w.Header();
       const hid_t creation = Writer::Chunked(1, 0);
       Writer::Set(w.properties, "P.smp0", 3ULL << 40, {}, creation);
       H5Pclose(creation);
     },
     "chunks, up to"},
    {"a filter of another kind",
     [](Writer& w) {
       w.Header();
       const hid_t creation = Writer::Chunked(3, 0);
       H5Pset_shuffle(creation);
       Writer::Set(w.properties, "P.smp0", 3, {1, 2, 3}, creation);
       H5Pclose(creation);
     },
     "filter other than deflate"},
    {"a stream that is no stream",
     [](Writer& w) {
       w.Header();
       const hid_t creation = Writer::Chunked(3, 1);
       Writer::Set(w.properties, "P.smp0", 3, {1, 2, 3}, creation);
       H5Pclose(creation);
       const hid_t set = H5Dopen2(w.properties, "P.smp0", H5P_DEFAULT);
       const hsize_t at = 0;
       H5Dwrite_chunk(set, H5P_DEFAULT, 0, &at, 8, "no zlib!");
       H5Dclose(set);
     },
     "cannot be unpacked"},
    {"big-endian values",
     [](Writer& w) {
       w.Header();
       Writer::Set(w.properties, "P.smp0", 3, {1, 2, 3}, H5P_DEFAULT, H5T_IEEE_F32BE);
     },
     "another type than float32"},
    {"a piece of an element",
     [](Writer& w) {
       w.Header();
       Writer::Set(w.properties, "P.smp0", 4, {1, 2, 3, 4});
     },
     "elements are of 12"},
    {"a sample that is missing",
     [](Writer& w) {
       w.Header({3});
       Writer::Set(w.properties, "P.smp0", 3, {1, 2, 3});
       Writer::Set(w.Group(w.properties, "P.smpi"), "0001", 3, {1, 2, 3});
     },
     "stored sample 2 of 3: a sample has no data set"},
    {"all samples but the first missing",
     [](Writer& w) {
       w.Header({3});
       Writer::Set(w.properties, "P.smp0", 3, {1, 2, 3});
     },
     "3 samples does not have them"},
    {"a type that is an object of its own",
     [](Writer& w) {
       const hid_t type = H5Tcopy(H5T_STD_U32LE);
       H5Tcommit2(w.properties, "type", type, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
       Writer::Attribute(w.properties, "P.info", type, {0x3aa});
       H5Tclose(type);
     },
     "an object of its own"},
    {"two billion samples",
     [](Writer& w) {
       w.Header({0x7fffffff});
       Writer::Set(w.properties, "P.smp0", 3, {1, 2, 3});
       w.Group(w.properties, "P.smpi");
     },
     "more than the file can hold"},
    {"header of six words",
     [](Writer& w) {
       w.Header({4, 1, 2, 0, 0});
     },
     "header of 6 words"},
    {"plain type 14", [](Writer& w) { w.Header({}, 0x3ba); }, "plain type 14"},
    {"time sampling of another archive", [](Writer& w) { w.Header({7}, 0x3ea); },
     "time sampling 7"},
};

TEST_F(Hdf5Archives, OfOneFaultAreToldOfIt) {
  for (const auto& one : kRefused) {
    SCOPED_TRACE(one.why);
    {
      Writer writer(Path());
      one.make(writer);
    }
    const std::string words = Words();
    EXPECT_NE(words.find(one.words), words.npos) << words;
  }
}

TEST_F(Hdf5Archives, OfOtherKindsAreRefused) {
  { Writer writer(Path(), 512); }
  EXPECT_EQ(Words(), "something else stands before the archive");
  { Writer writer(Path(), 0, -7); }
  EXPECT_EQ(Words(), "layout version -7, -8 is served");
  H5Fclose(H5Fcreate(Path().c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT));
  EXPECT_EQ(Words(), "not an Alembic archive: no abc_version");
}

TEST_F(Hdf5Archives, CutShortAreRefusedOrFailToRead) {
  const Bytes whole = ReadBytes(TestData("abc_hdf5/tiny.abc"));
  for (std::size_t size = 8; size < whole.size(); size += 61) {
    std::filesystem::remove(Path());
    WriteBytes(Path(), {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
    EXPECT_NE(Words(), "");
  }
  WriteBytes(Path(), whole);
  AlembicInterface archive(true);
  float values[6];
  ASSERT_TRUE(archive.Open(Path().c_str(), 1));
  ASSERT_TRUE(archive.GetChannelBuffer(0, values, 1, KelTime()));
  std::filesystem::resize_file(Path(), 100);
  EXPECT_FALSE(archive.GetChannelBuffer(0, values, 1, KelTime()));
}

TEST(Hdf5Threads, HaveObjectsOfTheirOwn) {
  std::vector<std::thread> threads;
  for (const char* name : {"tiny", "xforms", "cyclic_3", "xforms"}) {
    threads.emplace_back([name] {
      for (int i = 0; i < 5; ++i) {
        AlembicInterface archive(true);
        ASSERT_TRUE(archive.Open(TestData(std::string("abc_hdf5/") + name + ".abc").c_str(), 1));
        EXPECT_TRUE(archive.Verify(nullptr, nullptr));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace kelsdk::test
