// Files as the back-ends use them, on a system that moves less than asked, is interrupted or fails.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <numeric>
#include <utility>

#include "backends/io/input_file.h"
#include "backends/io/output_file.h"
#include "backends/io/replace.h"
#include "tests/support/fixture.h"

namespace kelsdk::io {
namespace {

using test::Bytes;

constexpr std::uint64_t kOffset = 5;

class Io : public test::FileTest {
 protected:
  // Different from the same bytes a step to either side.
  static Bytes Pattern(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(1 + i * 37 % 251);
    return bytes;
  }

  void Create(OutputFile* file) const {
    Error error;
    ASSERT_TRUE(file->Create(path_.c_str(), 0600, error)) << error.text();
  }

  static std::vector<struct iovec> RunsOver(Bytes& bytes, const std::vector<std::size_t>& lengths) {
    std::vector<struct iovec> runs;
    std::uint8_t* at = bytes.data();
    for (const std::size_t length : lengths)
      runs.push_back({std::exchange(at, at + length), length});
    return runs;
  }

  const std::string path_ = folder_.File("file");
};

TEST_F(Io, TransfersThatTheSystemShortensArriveWhole) {
  // The lengths of the runs that a transfer is made of; one alone goes through the plain form.
  const std::vector<std::size_t> shapes[] = {
      {64}, {1, 63}, {0, 10, 0, 0, 20, 34, 0}, {8, 8, 8, 8, 8, 8, 8, 8}, {0}, {}};
  for (const std::vector<std::size_t>& shape : shapes) {
    const std::size_t size = std::accumulate(shape.begin(), shape.end(), std::size_t{0});
    const bool plain = shape.size() == 1;
    Bytes written = Pattern(size);
    Bytes expected(size == 0 ? 0 : kOffset + size);
    std::copy(written.begin(), written.end(), expected.end() - static_cast<std::ptrdiff_t>(size));
    // So many bytes with one call at most, and each of the calls interrupted in turn.
    for (const std::size_t most : {1U, 3U, 8U, 63U, 64U}) {
      for (unsigned long n = 1; n <= 64 / most + 1; ++n) {
        SCOPED_TRACE(std::to_string(shape.size()) + " runs, " + std::to_string(most) +
                     " bytes a call, interrupted at " + std::to_string(n));
        const test::ShortenTransfers shorter(most);
        Error error;
        OutputFile out;
        InputFile in;
        Create(&out);
        ASSERT_TRUE(in.Open(path_.c_str(), error));
        {
          const test::FailSystemCall interruption(n, EINTR);
          auto runs = RunsOver(written, shape);
          EXPECT_TRUE(plain ? out.WriteAt(kOffset, written.data(), size, error)
                            : out.WriteGather(kOffset, runs.data(), int(runs.size()), error));
        }
        EXPECT_EQ(test::ReadBytes(path_), expected);
        Bytes read(size);
        {
          const test::FailSystemCall interruption(n, EINTR);
          auto runs = RunsOver(read, shape);
          EXPECT_TRUE(plain ? in.ReadAt(kOffset, read.data(), size, error)
                            : in.ReadScatter(kOffset, runs.data(), int(runs.size()), error));
        }
        EXPECT_EQ(read, written);
        ASSERT_TRUE(Remove(path_.c_str(), error));
      }
    }
  }
}

// A disk that is full is another thing than one that breaks, wherever in a transfer it shows.
TEST_F(Io, FailuresOfTheSystemAreToldApart) {
  const std::pair<int, Error::EKind> rows[] = {
      {ENOSPC, Error::eNoSpace}, {EDQUOT, Error::eNoSpace},   {EFBIG, Error::eNoSpace},
      {EIO, Error::eDevice},     {ESTALE, Error::eDevice},    {EROFS, Error::eDenied},
      {EACCES, Error::eDenied},  {EPERM, Error::eDenied},     {ENOENT, Error::eNotFound},
      {EEXIST, Error::eExists},  {ENOTDIR, Error::eNotFound}, {EISDIR, Error::eNotAFile},
      {ENOMEM, Error::eNoMemory}};
  Bytes bytes = Pattern(20);
  const auto runs = [&bytes] { return RunsOver(bytes, {5, 15}); };
  const std::string to = path_ + "2";
  Error ignored;
  OutputFile out;
  InputFile in;
  Create(&out);
  ASSERT_TRUE(out.WriteAt(0, bytes.data(), 20, ignored) && in.Open(path_.c_str(), ignored));
  // Of three calls that a transfer takes, the second fails: what is left to do is named.
  const struct {
    const char* words;
    unsigned long n;
    std::function<bool(Error&)> call;
  } operations[] = {
      {"writing 12 bytes at 8", 2, [&](Error& e) { return out.WriteAt(0, bytes.data(), 20, e); }},
      {"writing 12 bytes at 8", 2,
       [&](Error& e) { return out.WriteGather(0, runs().data(), 2, e); }},
      {"reading 12 bytes at 8", 2, [&](Error& e) { return in.ReadAt(0, bytes.data(), 20, e); }},
      {"reading 12 bytes at 8", 2,
       [&](Error& e) { return in.ReadScatter(0, runs().data(), 2, e); }},
      {"setting the size to 7", 1, [&](Error& e) { return out.Truncate(7, e); }},
      {"making the file durable", 1, [&](Error& e) { return out.Sync(e); }},
      {"renaming into place", 1, [&](Error& e) { return Rename(path_.c_str(), to.c_str(), e); }},
      {"making the folder durable", 2, [&](Error& e) { return SyncFolderOf(path_.c_str(), e); }},
      {"making the file system durable", 2,
       [&](Error& e) { return SyncFileSystemOf(folder_.path().c_str(), e); }},
  };
  const test::ShortenTransfers shorter(8);
  for (const auto& [number, kind] : rows) {
    for (const auto& operation : operations) {
      SCOPED_TRACE(operation.words);
      const test::FailSystemCall failure(operation.n, number);
      Error error;
      EXPECT_FALSE(operation.call(error));
      EXPECT_EQ(error.kind(), kind);
      EXPECT_EQ(std::string(error.text()),
                operation.words + std::string(": ") + ::strerror(number));
    }
  }
  // Some file systems cannot sync folders; that is no failure.
  for (const int number : {EINVAL, ENOTSUP}) {
    const test::FailSystemCall failure(2, number);
    Error error;
    EXPECT_TRUE(SyncFolderOf(path_.c_str(), error)) << error.text();
  }
}

// A large file that is written in order, whatever becomes of that.
TEST_F(Io, TheDiskGetsToWorkBeforeTheEnd) {
  constexpr std::size_t kPart = std::size_t{1} << 20;
  constexpr unsigned long kParts = 40;
  const Bytes bytes = Pattern(kPart);
  Error error;
  OutputFile file;
  Create(&file);
  const unsigned long before = test::SystemCallCount();
  for (unsigned long i = 0; i < kParts; ++i) {
    const test::FailSystemCall refusal(i == 15 ? 2 : 10);  // to the first handing over
    ASSERT_TRUE(file.WriteAt(i * kPart, bytes.data(), kPart, error)) << error.text();
    EXPECT_EQ(refusal.Reached(), i == 15);
  }
  ASSERT_TRUE(file.WriteAt(0, bytes.data(), kPart, error));
  EXPECT_EQ(test::SystemCallCount() - before, kParts + 2 + 1);
  EXPECT_TRUE(file.Sync(error));
}

}  // namespace
}  // namespace kelsdk::io
