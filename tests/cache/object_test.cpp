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
  KelCache& cache = *cache_;
  EXPECT_EQ(cache.GetCacheFileFormat(), KelCache::eUnknownFormat);
  EXPECT_TRUE(cache.SetCacheFileFormat(kOtherFormat, &status_));
  EXPECT_EQ(Status(), "");
  cache.SetCacheFileName("caches\\a b.pc2", "C:\\caches\\a b.pc2", &status_);
  EXPECT_EQ(Status(), "");
  KelProperty type = cache.FindProperty("CacheFileType");
  EXPECT_EQ(type.GetDataType(), &KelEnumDT);
  for (const auto flag : {KelPropertyFlags::eStatic, KelPropertyFlags::eSavable}) {
    EXPECT_TRUE(type.GetFlag(flag));
    type.ModifyFlag(flag, false);
  }
  KelString relative;
  KelString absolute;
  cache.ConstructProperties(false);
  EXPECT_EQ(cache.GetCacheFileFormat(), kOtherFormat);
  EXPECT_FALSE(type.GetFlag(KelPropertyFlags::eStatic));
  EXPECT_TRUE(type.GetFlag(KelPropertyFlags::eSavable));
  cache.GetCacheFileName(relative, absolute);
  EXPECT_STREQ(relative, "caches\\a b.pc2") << "stored as it is";
  EXPECT_STREQ(absolute, "C:\\caches\\a b.pc2");

  auto* copy = static_cast<KelCache*>(cache.Clone(KelObject::eDeepClone, nullptr, nullptr));
  cache.ConstructProperties(true);
  EXPECT_EQ(cache.GetCacheFileFormat(), KelCache::eUnknownFormat);
  EXPECT_TRUE(type.GetFlag(KelPropertyFlags::eStatic));
  cache.GetCacheFileName(relative, absolute);
  EXPECT_STREQ(relative, "");
  EXPECT_STREQ(absolute, "");
  EXPECT_EQ(copy->GetCacheFileFormat(), kOtherFormat);
  copy->GetCacheFileName(relative, absolute);
  EXPECT_STREQ(absolute, "C:\\caches\\a b.pc2");
}

TEST_F(CacheMaking, GivesNullWithoutMemory) {
  const auto failed = FailEachAllocation([&] {
    const long before = OutstandingBlocks();
    KelCache* made = KelCache::Allocate(object_->manager, "made", nullptr);
    if (made != nullptr) made->Destroy();
    EXPECT_EQ(OutstandingBlocks(), before);
  });
  EXPECT_GE(failed, 5u);
}

// The targets of writes that were not closed stay as they are.
TEST_F(CacheMaking, EndsWithoutClosing) {
  WritePC2("a.pc2", 2);
  const Bytes older = ReadBytes(folder_.File("a.pc2"));
  double values[9] = {};
  KelTime time;
  ASSERT_TRUE(object_->BeginNC(folder_.File("new.xml"), {KelCache::eNCDoubleArray}));
  EXPECT_TRUE(cache_->Write(0, time, values, 1, nullptr));
  object_->Name(KelCache::ePC2Format, folder_.File("a.pc2"));
  ASSERT_TRUE(cache_->OpenFileForWrite(0, 24, 1, 3, nullptr));
  EXPECT_TRUE(cache_->Write(0, values, nullptr));
  object_->Name(KelCache::eAlembicFormat, TestData("abc/tiny.abc"));
  ASSERT_TRUE(cache_->OpenFileForRead(nullptr));
  object_.reset();
  EXPECT_FALSE(Exists(folder_.File("new.xml")));
  EXPECT_EQ(ReadBytes(folder_.File("a.pc2")), older);
}

}  // namespace
}  // namespace kelsdk::test
