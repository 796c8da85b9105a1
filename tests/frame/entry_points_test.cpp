#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <treekeeper/treekeeper.h>

#include "support/test_support.h"

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
  for (const char* argument : {static_cast<const char*>(nullptr), "", "anything"}) {
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(installer->InstallerStep5(argument), 0);
      EXPECT_EQ(installer->InstallerStep1(argument), 0);
      EXPECT_EQ(installer->InstallerStep2(argument), 1);
      EXPECT_EQ(installer->InstallerStep3(argument), 0);
      EXPECT_EQ(installer->InstallerStep4(argument), 0);
    }
  }
  TkDeleteTreeKeeperInstaller(installer);
  TkDeleteTreeKeeperInstaller(nullptr);
}

TEST(InstanceLife, CreateCloseAndDelete) {
  uint32_t reserved = 42;
  ITreeKeeper* instance = TkCreateTreeKeeper(&reserved);
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(reserved, 42u);
  EXPECT_EQ(instance->GetHandleCount(), 0u);
  instance->CloseAllElements();
  instance->CloseAllElements();
  EXPECT_EQ(instance->GetHandleCount(), 0u);
  TkDeleteTreeKeeper(instance);
  TkDeleteTreeKeeper(nullptr);
}

TEST(InstanceLife, InstancesOnOneThreadAreIndependent) {
  tk::test::MessageLog log;
  Instance first;
  Instance second;
  ASSERT_EQ(first->CreateEmpty("first"), 0);
  EXPECT_EQ(second->GetHandleCount(), 0u);
  const char* xml = "<second><child/></second>";
  ASSERT_EQ(second->ImportFromStream(xml, static_cast<int>(std::strlen(xml)), "name"), 0);
  EXPECT_NE(second->OpenElement(100, 0), 0u);
  EXPECT_EQ(first->GetHandleCount(), 1u);
  EXPECT_EQ(second->GetHandleCount(), 2u);

  first->CloseAllElements();
  EXPECT_EQ(first->GetHandleCount(), 0u);
  outputstr out;
  ASSERT_EQ(second->ExportToStream(out), 0);
  EXPECT_EQ(std::string(out.text()), std::string(tk::test::kDeclaration) + xml);

  // A closed instance starts again with its root at 100.
  ASSERT_EQ(first->CreateEmpty("again"), 0);
  EXPECT_EQ(first->OpenElement(static_cast<const char*>(nullptr)), 100u);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

// Deleting with live handles, closed slots and a source name gives each
// reference back once (the sanitizer build checks leaks and double frees).
TEST(InstanceLife, DeleteWithHandlesClosedSlotsAndName) {
  Instance instance;
  const char* xml = "<r><a/><b/><c/></r>";
  ASSERT_EQ(instance->ImportFromStream(xml, 1, "source"), 0);
  const unsigned a = instance->OpenElement(100, 0);
  const unsigned b = instance->OpenElement(100, 1);
  const unsigned c = instance->OpenElement(100, 2);
  ASSERT_TRUE(a != 0 && b != 0 && c != 0);
  EXPECT_EQ(instance->CloseElement(b), 0);
  unsigned created = 0;
  EXPECT_EQ(instance->CreateElement(c, "d/e", &created), 0);
  EXPECT_EQ(instance->GetHandleCount(), 5u);
}

// The library fills a client's outputstr through its virtual clear and append
// only, so a subclass of the client's own sees every write.
class ClientText : public outputstr {
 public:
  outputstr& append(const char* text) override {
    written += text != nullptr ? text : "";
    ++appends;
    return outputstr::append(text);
  }
  void clear() override {
    written.clear();
    ++clears;
    outputstr::clear();
  }
  std::string written;
  int appends = 0;
  int clears = 0;
};

TEST(InstanceLife, ClientSubclassIsFilledThroughTheVirtuals) {
  Instance instance;
  ASSERT_EQ(instance->CreateEmpty("root"), 0);
  ASSERT_EQ(instance->setAttributeValue(100, nullptr, "k", TK_VALUE_TEXT, 0, "v"), 0);
  ClientText text;
  text.append("stale");
  ASSERT_EQ(instance->ExportToStream(text), 0);
  EXPECT_EQ(text.clears, 1);
  EXPECT_EQ(text.written, text.text());
  EXPECT_EQ(text.written, std::string(tk::test::kDeclaration) + "<root k=\"v\"/>");

  ClientText value;
  ASSERT_EQ(instance->GetAttributeText(100, nullptr, "k", value), 0);
  EXPECT_EQ(value.written, "v");
  EXPECT_GE(value.clears, 1);
}

}  // namespace
