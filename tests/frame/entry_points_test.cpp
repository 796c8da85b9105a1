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
  for (uint32_t good : {0u, 0x010003E9u}) EXPECT_EQ(TkIsGoodVersion(good), 1) << good;
  for (uint32_t bad : {0x010003EAu, 0xFFFFFFFFu}) EXPECT_EQ(TkIsGoodVersion(bad), 0) << bad;
}

TEST(Installer, ConstantResults) {
  ITreeKeeperInstaller* installer = TkCreateTreeKeeperInstaller();
  ASSERT_NE(installer, nullptr);
  for (const char* argument : {static_cast<const char*>(nullptr), "anything"}) {
    EXPECT_EQ(installer->InstallerStep1(argument), 0);
    EXPECT_EQ(installer->InstallerStep2(argument), 1);
    EXPECT_EQ(installer->InstallerStep3(argument), 0);
    EXPECT_EQ(installer->InstallerStep4(argument), 0);
    EXPECT_EQ(installer->InstallerStep5(argument), 0);
  }
  TkDeleteTreeKeeperInstaller(installer);
  TkDeleteTreeKeeperInstaller(nullptr);
}

// Instances on one thread share neither document nor handle table. Deleting
// one with live handles, closed slots and a source name gives each reference
// back once (the sanitizer build checks leaks and double frees).
TEST(InstanceLife, IndependentInstancesAndDeleteWithHandles) {
  Instance first;
  ITreeKeeper* second = TkCreateTreeKeeper(nullptr);
  ASSERT_EQ(first->CreateEmpty("first"), 0);
  ASSERT_EQ(second->ImportFromStream("<r><a/><b/><c/></r>", 1, "source"), 0);
  for (unsigned i = 0; i < 3; ++i) ASSERT_EQ(second->OpenElement(100, i), 101 + i);
  EXPECT_EQ(second->CloseElement(102), 0);
  unsigned created = 0;
  EXPECT_EQ(second->CreateElement(103, "d/e", &created), 0);
  first->CloseAllElements();
  first->CloseAllElements();
  EXPECT_EQ(second->GetHandleCount(), 5u);
  EXPECT_EQ(tk::test::DocumentText(second), "<r><a/><b/><c><d><e/></d></c></r>");
  ASSERT_EQ(first->CreateEmpty("again"), 0);  // a closed instance starts again at 100
  EXPECT_EQ(first->OpenElement(static_cast<const char*>(nullptr)), 100u);
  TkDeleteTreeKeeper(second);
  TkDeleteTreeKeeper(nullptr);
}

// Text handed back in a client's outputstr goes through its virtuals only.
TEST(InstanceLife, ClientSubclassIsFilledThroughTheVirtuals) {
  Instance instance;
  ASSERT_EQ(instance->CreateEmpty("root"), 0);
  ASSERT_EQ(instance->setAttributeValue(100, nullptr, "k", TK_VALUE_TEXT, 0, "v"), 0);
  tk::test::RecordingText value("stale");
  ASSERT_EQ(instance->GetAttributeText(100, nullptr, "k", value), 0);
  EXPECT_EQ(value.written, "v");
  EXPECT_GE(value.count("clear"), 1);
}

}  // namespace
