#include "host/KelStream.h"
#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

using CacheMaking = CacheTest;

TEST_F(CacheMaking, InAContainerNeedsItsManager) {
  EXPECT_EQ(KelCache::Create(static_cast<KelObject*>(nullptr), "x"), nullptr);
  KelCache& container = *cache_;
  KelCache* inside = KelCache::Create(&container, "inside");
  ASSERT_NE(inside, nullptr);
  object_->manager->Release(&container);
  EXPECT_EQ(KelCache::Create(&container, "inside"), nullptr);
  EXPECT_EQ(container.Clone(KelObject::eDeepClone, nullptr, nullptr), nullptr);
  container.Destroy();
}

TEST_F(CacheMaking, PropertiesStayUntilTheyAreReset) {
  KelProperty type = cache_->FindProperty("CacheFileType");
  type.ModifyFlag(KelPropertyFlags::eStatic, false);
  object_->Name(kOtherFormat, "C:\\caches\\a b.pc2", "caches\\a b.pc2");
  cache_->ConstructProperties(false);
  EXPECT_FALSE(type.GetFlag(KelPropertyFlags::eStatic));
  EXPECT_TRUE(type.GetFlag(KelPropertyFlags::eSavable));
  auto* copy = static_cast<KelCache*>(cache_->Clone(KelObject::eDeepClone, nullptr, nullptr));
  KelString relative, absolute;
  copy->GetCacheFileName(relative, absolute);
  EXPECT_STREQ(relative, "caches\\a b.pc2");
  EXPECT_STREQ(absolute, "C:\\caches\\a b.pc2");
  KelStream stream, lying;
  EXPECT_TRUE(copy->ContentWriteTo(stream));
  cache_->ConstructProperties(true);
  EXPECT_TRUE(type.GetFlag(KelPropertyFlags::eStatic));
  lying.WriteText("CacheFileName", 13);
  lying.WriteInteger(1000000);
  EXPECT_FALSE(cache_->ContentReadFrom(lying));
  EXPECT_TRUE(cache_->Compare(KelCache::Create(object_->manager, "new"))) << "nothing changed";
  EXPECT_FALSE(cache_->Compare(copy));
  EXPECT_TRUE(cache_->ContentReadFrom(stream) && cache_->Compare(copy));
  object_.reset();
  int format = 0;
  EXPECT_TRUE(type.Get(&format, eKelEnum) && format == kOtherFormat) << "kept by its handle";
}

// Two strings are made, and a copy of each is kept.
TEST_F(CacheMaking, NamesThatThereIsNoMemoryFor) {
  const auto name = [this](unsigned long n) {
    status_.Clear();
    const FailAllocation failure(n, EAllocations::eKelMalloc);
    cache_->SetCacheFileName("c", "d", &status_);
    EXPECT_EQ(status_.Error(), failure.Reached());
    return failure.Reached();
  };
  EXPECT_TRUE(name(1) && name(2) && name(3) && name(4) && !name(5));
}

}  // namespace
}  // namespace kelsdk::test
