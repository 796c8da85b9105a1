#include <string>

#include <gtest/gtest.h>
#include <treekeeper/treekeeper.h>

#include "support/recording_text.h"
#include "support/test_support.h"
#include "support/xml_text.h"

namespace {

using tk::test::Instance;

TEST(Version, NumberAndRule) {
  EXPECT_EQ(TkGetVersion(), 0x010003E9u);
  const struct {
    uint32_t version;
    int32_t good;
  } cases[] = {{0, 1}, {1, 1}, {0x010003E8u, 1}, {0x010003E9u, 1},
               {0x010003EAu, 0}, {0x02000000u, 0}, {0xFFFFFFFFu, 0}};
  for (const auto& c : cases) EXPECT_EQ(TkIsGoodVersion(c.version), c.good) << c.version;
}

TEST(Installer, ConstantResults) {
  ITreeKeeperInstaller* installer = TkCreateTreeKeeperInstaller();
  ASSERT_NE(installer, nullptr);
  for (const char* argument : {static_cast<const char*>(nullptr), "", "anything", "again"}) {
    EXPECT_EQ(installer->InstallerStep5(argument), 0);
    EXPECT_EQ(installer->InstallerStep1(argument), 0);
    EXPECT_EQ(installer->InstallerStep2(argument), 1);
    EXPECT_EQ(installer->InstallerStep3(argument), 0);
    EXPECT_EQ(installer->InstallerStep4(argument), 0);
  }
  TkDeleteTreeKeeperInstaller(installer);
  TkDeleteTreeKeeperInstaller(nullptr);
}

TEST(InstanceLife, CreateCloseAndDelete) {
  uint32_t reserved = 42;
  ITreeKeeper* instance = TkCreateTreeKeeper(&reserved);
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(reserved, 42u);
  instance->CloseAllElements();
  instance->CloseAllElements();
  EXPECT_EQ(instance->GetHandleCount(), 0u);
  TkDeleteTreeKeeper(instance);
  TkDeleteTreeKeeper(nullptr);
}

TEST(InstanceLife, InstancesOnOneThreadAreIndependent) {
  tk::test::MessageLog log;
  Instance first, second;
  ASSERT_EQ(first->CreateEmpty("first"), 0);
  const char* xml = "<second><child/></second>";
  ASSERT_EQ(tk::test::LoadText(second.tk, xml), 0);
  EXPECT_NE(second->OpenElement(100, 0), 0u);
  first->CloseAllElements();
  EXPECT_EQ(first->GetHandleCount(), 0u);
  EXPECT_EQ(second->GetHandleCount(), 2u);
  EXPECT_EQ(tk::test::DocumentText(second.tk), xml);
  // A closed instance starts again with its root at 100.
  ASSERT_EQ(first->CreateEmpty("again"), 0);
  EXPECT_EQ(first->OpenElement(static_cast<const char*>(nullptr)), 100u);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

// Deleting with live handles, closed slots and a source name gives each
// reference back once (the sanitizer build checks leaks and double frees).
TEST(InstanceLife, DeleteWithHandlesClosedSlotsAndName) {
  Instance instance;
  ASSERT_EQ(instance->ImportFromStream("<r><a/><b/><c/></r>", 1, "source"), 0);
  for (unsigned i = 0; i < 3; ++i) ASSERT_EQ(instance->OpenElement(100, i), 101 + i);
  EXPECT_EQ(instance->CloseElement(102), 0);
  unsigned created = 0;
  EXPECT_EQ(instance->CreateElement(103, "d/e", &created), 0);
  EXPECT_EQ(instance->GetHandleCount(), 5u);
}

// Text handed back in a client's outputstr goes through its virtuals only.
TEST(InstanceLife, ClientSubclassIsFilledThroughTheVirtuals) {
  Instance instance;
  ASSERT_EQ(instance->CreateEmpty("root"), 0);
  ASSERT_EQ(instance->setAttributeValue(100, nullptr, "k", TK_VALUE_TEXT, 0, "v"), 0);
  tk::test::RecordingText value("stale");
  ASSERT_EQ(instance->GetAttributeText(100, nullptr, "k", value), 0);
  EXPECT_EQ(value.written, "v");
  EXPECT_STREQ(value.text(), "v");
  EXPECT_GE(value.count("clear"), 1);
}

}  // namespace
