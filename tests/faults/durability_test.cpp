// In which order writers make things durable: a machine may lose its power between any two steps.
#include <set>

#include "tests/faults/stores.h"

namespace kelsdk::test {
namespace {

std::string FolderOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

// Follows the steps of a writer and tells which come too early.
class DiskOrder {
 public:
  void Take(const DiskEvent& event) {
    const auto& [kind, path, renamedTo] = event;
    if (kind == DiskEvent::eRename) Rename(path, renamedTo);
    if (kind == DiskEvent::eSyncAll) pending_.clear();
    if (kind == DiskEvent::eWrite) {
      pending_.insert(path);
      if (written_.insert(path).second) syncedFolders_.erase(FolderOf(path));
    }
    if (kind == DiskEvent::eSync) {
      pending_.erase(path);
      namesToCome_.erase(path);
      syncedFolders_.insert(path);
    }
    constexpr const char* kWords[] = {"write ", "sync ", "sync all of ", "rename "};
    steps_ += std::string("\n  ") + kWords[kind] + path + " " + renamedTo;
  }

  // Everything that was renamed is there for good, the description last.
  void ExpectDone(std::size_t files, const std::string& last) const {
    EXPECT_TRUE(namesToCome_.empty()) << "the folder is not durable at the end" << steps_;
    EXPECT_TRUE(pending_.empty()) << *pending_.begin() << " was written last" << steps_;
    ASSERT_EQ(renamed_.size(), files) << steps_;
    EXPECT_TRUE(fs::equivalent(renamed_.back(), last)) << steps_;
  }

 private:
  void Rename(const std::string& from, const std::string& to) {
    EXPECT_FALSE(pending_.contains(from)) << from << " may be empty under its new name" << steps_;
    if (FolderOf(from) != FolderOf(to)) {
      // A writer that dies between two renames is completed by what its folder says.
      const std::string description = FolderOf(from) + "/shot.xml";
      EXPECT_FALSE(pending_.contains(description)) << "data go before " << description << steps_;
      EXPECT_TRUE(syncedFolders_.contains(FolderOf(from))) << "nor is its name sure" << steps_;
    }
    EXPECT_FALSE(to.ends_with(".xml") && namesToCome_.contains(FolderOf(to)))
        << "may come before its data" << steps_;
    namesToCome_.insert(FolderOf(to));
    renamed_.push_back(to);
  }

  std::set<std::string> pending_;      // files with content that is not durable
  std::set<std::string> namesToCome_;  // folders with names that are not
  std::set<std::string> written_;
  std::set<std::string> syncedFolders_;  // since the last file was made in them; and files
  std::vector<std::string> renamed_;
  std::string steps_;
};

class Durability : public StoreTest, public testing::WithParamInterface<Store> {};

TEST_P(Durability, ContentThenDataThenDescriptionThenFolder) {
  const Store& store = GetParam();
  const bool perFrame = store.files == KelCache::eNCFilePerFrame;
  // A new cache, one in its place, and one whose many data files are made durable with one call.
  for (const unsigned int samples : {3U, 4U, 70U}) {
    const Animation animation = {samples, samples, store.IsNC() ? 2U : 1U};
    DiskOrder order;
    {
      const RecordDisk disk;
      WriteCache(store, PathOf(store), animation, steps_);
      for (const DiskEvent& event : disk.Events()) order.Take(event);
    }
    order.ExpectDone(store.IsNC() ? (perFrame ? samples : 1) + 1 : 1, PathOf(store));
    EXPECT_TRUE(ReadCache(store, PathOf(store)) == animation.All());
  }
}

INSTANTIATE_TEST_SUITE_P(OfWriters, Durability, testing::ValuesIn(kStores),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace kelsdk::test
