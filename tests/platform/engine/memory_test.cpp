#include "platform/engine/memory.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "support/test_support.hpp"

namespace engine {
namespace {

using SyncMemoryTest = tw::test::StoreTest;

TEST_F(SyncMemoryTest, KeepsWhatWasSentAndForgetsAnythingDamaged) {
  EXPECT_TRUE(SyncMemory::load(storeDir()).instance.empty());  // no file yet

  SyncMemory memory;
  memory.instance = "unix:path=/run/dbus/system_bus_socket :1.42";
  memory.services["a"] = {"digest-a", "/org/freedesktop/NetworkManager/Settings/1"};
  memory.services["b"] = {"digest-b", "/org/freedesktop/NetworkManager/Settings/7"};
  ASSERT_TRUE(memory.save(storeDir()));
  SyncMemory read = SyncMemory::load(storeDir());
  EXPECT_EQ(read.instance, memory.instance);
  ASSERT_EQ(read.services.size(), 2u);
  EXPECT_EQ(read.services["b"].digest, "digest-b");
  EXPECT_EQ(read.services["b"].path, "/org/freedesktop/NetworkManager/Settings/7");

  // Cut short, or foreign: nothing is trusted, so the next sync reads
  // what NetworkManager holds.
  std::string text = tw::test::fileBytes(storeDir() + "/" + kMemoryName);
  for (const std::string &damaged :
       {text.substr(0, text.size() - 20), "some other file\n" + text}) {
    std::ofstream(storeDir() + "/" + kMemoryName, std::ios::trunc) << damaged;
    SyncMemory lost = SyncMemory::load(storeDir());
    EXPECT_TRUE(lost.instance.empty());
    EXPECT_TRUE(lost.services.empty());
  }
}

TEST_F(SyncMemoryTest, AFailedSaveLeavesNoTemporaryFile) {
  ASSERT_EQ(mkdir((storeDir() + "/" + kMemoryName).c_str(), 0700), 0);  // cannot be replaced
  SyncMemory memory;
  memory.instance = "x";
  EXPECT_FALSE(memory.save(storeDir()));
  for (const auto &entry : std::filesystem::directory_iterator(storeDir())) {
    EXPECT_EQ(entry.path().filename().string().find(".new-"), std::string::npos) << entry.path();
  }
}

}  // namespace
}  // namespace engine
