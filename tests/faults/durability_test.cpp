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
  explicit DiskOrder(std::string folder) : folder_(std::move(folder)) {}

  void Take(const DiskEvent& event) {
    switch (event.kind) {
      case DiskEvent::eWrite: Write(event.path); break;
      case DiskEvent::eSync: Sync(event.path); break;
      case DiskEvent::eSyncAll: pending_.clear(); break;
      case DiskEvent::eRename: Rename(event.path, event.renamedTo); break;
    }
    steps_ += "\n  " + std::string(kWords[event.kind]) + event.path.substr(folder_.size()) +
              (event.renamedTo.empty() ? "" : " to " + event.renamedTo.substr(folder_.size()));
  }

  // Everything that was renamed is there for good.
  void End() {
    EXPECT_FALSE(renamed_.empty()) << "nothing was put in its place";
    EXPECT_TRUE(namesToCome_.empty()) << "the folder is not durable at the end" << steps_;
    EXPECT_TRUE(pending_.empty()) << *pending_.begin() << " was written last" << steps_;
  }

  const std::vector<std::string>& Renamed() const { return renamed_; }

 private:
  static constexpr const char* kWords[] = {"write ", "sync ", "sync all of ", "rename "};

  void Write(const std::string& path) {
    pending_.insert(path);
    if (written_.insert(path).second) syncedFolders_.erase(FolderOf(path));
  }

  void Sync(const std::string& path) {
    pending_.erase(path);
    namesToCome_.erase(path);
    syncedFolders_.insert(path);
  }

  void Rename(const std::string& from, const std::string& to) {
    EXPECT_FALSE(pending_.contains(from)) << from << " may be empty under its new name" << steps_;
    const bool isDescription = to.ends_with(".xml");
    if (FolderOf(from) != FolderOf(to)) {
      // A writer that dies between two renames is completed by what its folder says.
      const std::string description = FolderOf(from) + "/shot.xml";
      EXPECT_FALSE(pending_.contains(description)) << "data go before " << description << steps_;
      EXPECT_TRUE(syncedFolders_.contains(FolderOf(from))) << "nor is its name sure" << steps_;
    }
    if (isDescription) {
      EXPECT_FALSE(namesToCome_.contains(FolderOf(to))) << "may come before its data" << steps_;
    }
    namesToCome_.insert(FolderOf(to));
    EXPECT_TRUE(renamed_.empty() || !renamed_.back().ends_with(".xml")) << "after it" << steps_;
    renamed_.push_back(to);
  }

  const std::string folder_;
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
    DiskOrder order(fs::canonical(folder_.path()));
    {
      const RecordDisk disk;
      WriteCache(store, PathOf(store), animation, steps_);
      for (const DiskEvent& event : disk.Events()) order.Take(event);
    }
    order.End();
    EXPECT_EQ(order.Renamed().size(), store.IsNC() ? (perFrame ? samples : 1) + 1 : 1);
    ASSERT_FALSE(order.Renamed().empty());
    EXPECT_TRUE(fs::equivalent(order.Renamed().back(), PathOf(store)));
    EXPECT_TRUE(ReadCache(store, PathOf(store)) == animation.All());
  }
}

INSTANTIATE_TEST_SUITE_P(OfWriters, Durability, testing::ValuesIn(kStores),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace kelsdk::test
