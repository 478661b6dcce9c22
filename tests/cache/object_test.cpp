#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

using CacheMaking = CacheTest;

TEST_F(CacheMaking, InAContainerNeedsItsManager) {
  EXPECT_EQ(KelCache::Create(static_cast<KelObject*>(nullptr), "x"), nullptr);
  KelCache& container = *cache_;
  KelCache* inside = KelCache::Create(&container, "inside");
  ASSERT_NE(inside, nullptr);
  EXPECT_EQ(inside->GetKelManager(), object_->manager);
  EXPECT_EQ(inside->GetClassId(), KelCache::ClassId);
  EXPECT_TRUE(KelCache::ClassId.Is(KelObject::ClassId));
  EXPECT_STREQ(inside->GetTypeName(), "KelCache");
  EXPECT_TRUE(inside->GetObjectFlags(KelObject::eSavable));
  object_->manager->Release(&container);
  EXPECT_EQ(KelCache::Create(&container, "inside"), nullptr);
  container.Destroy();
}

TEST_F(CacheMaking, PropertiesKeepOrResetTheirValues) {
  KelProperty type = cache_->FindProperty("CacheFileType");
  EXPECT_EQ(type.GetDataType(), &KelEnumDT);
  for (const auto flag : {KelPropertyFlags::eStatic, KelPropertyFlags::eSavable}) {
    EXPECT_TRUE(type.GetFlag(flag));
    type.ModifyFlag(flag, false);
  }
  object_->Name(kOtherFormat, "C:\\caches\\a b.pc2", "caches\\a b.pc2");
  cache_->ConstructProperties(false);
  EXPECT_FALSE(type.GetFlag(KelPropertyFlags::eStatic));
  EXPECT_TRUE(type.GetFlag(KelPropertyFlags::eSavable));
  auto* copy = static_cast<KelCache*>(cache_->Clone(KelObject::eDeepClone, nullptr, nullptr));
  for (const bool reset : {false, true}) {
    KelString relative("x");
    KelString absolute("x");
    cache_->GetCacheFileName(relative, absolute);
    EXPECT_STREQ(relative, reset ? "" : "caches\\a b.pc2");
    EXPECT_STREQ(absolute, reset ? "" : "C:\\caches\\a b.pc2");
    EXPECT_EQ(cache_->GetCacheFileFormat(), reset ? KelCache::eUnknownFormat : kOtherFormat);
    EXPECT_EQ(copy->Compare(cache_), !reset);
    cache_->ConstructProperties(true);
  }
  EXPECT_TRUE(type.GetFlag(KelPropertyFlags::eStatic));
}

}  // namespace
}  // namespace kelsdk::test
