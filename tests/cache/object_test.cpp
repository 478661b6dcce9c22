#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

class Object : public StandInTest {};

TEST_F(Object, FreshObject) {
  EXPECT_EQ(cache_->GetCacheFileFormat(), KelCache::eUnknownFormat);
  EXPECT_EQ(cache_->GetClassId(), KelCache::ClassId);
  EXPECT_TRUE(KelCache::ClassId.Is(KelObject::ClassId));
  EXPECT_STREQ(cache_->GetTypeName(), "KelCache");
  EXPECT_TRUE(cache_->GetObjectFlags(KelObject::eSavable));
  KelString relative("x");
  KelString absolute("x");
  KelCache::Create(manager_, "fresh")->GetCacheFileName(relative, absolute);
  EXPECT_STREQ(relative, "");
  EXPECT_STREQ(absolute, "");
  const KelCache_internal* state = CacheFields::State(cache_);
  EXPECT_EQ(state->ncCache, nullptr);
  EXPECT_EQ(state->pc2Cache, nullptr);
  EXPECT_EQ(state->alembicCache, nullptr);
  EXPECT_EQ(state->pc2Buffer, nullptr);
}

TEST_F(Object, CreationInAContainerNeedsItsManager) {
  EXPECT_EQ(KelCache::Create(static_cast<KelObject*>(nullptr), "x"), nullptr);
  KelObject* container = KelCache::Create(manager_, "container");
  KelCache* inside = KelCache::Create(container, "inside");
  ASSERT_NE(inside, nullptr);
  EXPECT_EQ(inside->GetKelManager(), manager_);
  manager_->Release(container);
  EXPECT_EQ(KelCache::Create(container, "inside"), nullptr);
  container->Destroy();
}

TEST_F(Object, NamesAreStoredAsTheyAre) {
  Soil();
  cache_->SetCacheFileName("caches\\a b.pc2", "C:\\caches\\a b.pc2", &status_);
  ExpectClear();
  KelString relative;
  KelString absolute;
  cache_->GetCacheFileName(relative, absolute);
  EXPECT_STREQ(relative, "caches\\a b.pc2");
  EXPECT_STREQ(absolute, "C:\\caches\\a b.pc2");
  Soil();
  EXPECT_TRUE(cache_->SetCacheFileFormat(static_cast<KelCache::EFileFormat>(7), &status_));
  ExpectClear();
  EXPECT_EQ(static_cast<int>(cache_->GetCacheFileFormat()), 7);
}

TEST_F(Object, PropertiesKeepOrResetTheirValues) {
  cache_->SetCacheFileFormat(KelCache::eNCFormat, nullptr);
  KelProperty type = cache_->FindProperty("CacheFileType");
  EXPECT_EQ(type.GetDataType(), &KelEnumDT);
  EXPECT_TRUE(type.GetFlag(KelPropertyFlags::eStatic));
  EXPECT_TRUE(type.GetFlag(KelPropertyFlags::eSavable));
  type.ModifyFlag(KelPropertyFlags::eStatic, false);
  type.ModifyFlag(KelPropertyFlags::eSavable, false);
  cache_->ConstructProperties(false);
  EXPECT_EQ(cache_->GetCacheFileFormat(), KelCache::eNCFormat);
  EXPECT_FALSE(type.GetFlag(KelPropertyFlags::eStatic));
  EXPECT_TRUE(type.GetFlag(KelPropertyFlags::eSavable));
  cache_->ConstructProperties(true);
  EXPECT_EQ(cache_->GetCacheFileFormat(), KelCache::eUnknownFormat);
  EXPECT_TRUE(type.GetFlag(KelPropertyFlags::eStatic));
}

TEST_F(Object, ACopyHasTheSourcesProperties) {
  cache_->SetCacheFileFormat(KelCache::eAlembicFormat, nullptr);
  auto* copy = static_cast<KelCache*>(cache_->Clone(KelObject::eDeepClone, nullptr, nullptr));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->GetCacheFileFormat(), KelCache::eAlembicFormat);
  EXPECT_TRUE(copy->Compare(cache_));
}

TEST_F(Object, EndsWithoutClosing) {
  // All three formats open at once, two of them for writing; the record ends them in its order.
  Open(KelCache::ePC2Format, true);
  Open(KelCache::eAlembicFormat);
  Open(KelCache::eNCFormat, true);
  cache_->Destroy();
  EXPECT_EQ(TheRecorder().Take(), "nc.delete(); pc2.delete(); abc.delete()");
}

TEST_F(Object, AllocateGivesNullWithoutMemory) {
  unsigned long failed = 0;
  FailEachAllocation([&] {
    const long before = OutstandingBlocks();
    KelCache* made = KelCache::Allocate(manager_, "made", nullptr);
    if (made == nullptr) {
      ++failed;
      EXPECT_EQ(OutstandingBlocks(), before);
    } else {
      made->Destroy();
    }
  });
  EXPECT_GE(failed, 5U);
}

}  // namespace
}  // namespace kelsdk::test
