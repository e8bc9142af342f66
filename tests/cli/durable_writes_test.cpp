// How often a command makes its changes durable: the Coffer once per
// command, the preferences once for the commit and once for the apply that
// records it, and nothing for an apply of what is applied already. Each
// SQLite write transaction advances the file change counter in the
// database header, which is what these tests count.
#include <sqlite3.h>

#include <cstdint>

#include "cli/tool_runner.hpp"

namespace tw::test {
namespace {

uint32_t transactionsOf(const std::string &database) {
  std::string header = fileBytes(database).substr(0, 28);
  if (header.size() < 28) return 0;
  uint32_t counter = 0;
  for (int i = 24; i < 28; ++i) counter = counter << 8 | static_cast<unsigned char>(header[i]);
  return counter;
}

class DurableWrites : public CliTest {
 protected:
  uint32_t cofferTransactions() const { return transactionsOf(storeDir() + "/coffer.db"); }
  uint32_t preferencesTransactions() const {
    return transactionsOf(storeDir() + "/preferences.db");
  }
};

TEST_F(DurableWrites, ACommandWritesTheCofferOnceAndThePreferencesOncePerStep) {
  ASSERT_EQ(tool({"install", example("l2tp.json")}).exitCode, 0);
  uint32_t coffer = cofferTransactions(), preferences = preferencesTransactions();

  // Reinstalling replaces the service: three secrets deleted, two stored.
  ToolResult reinstall = tool({"install", example("l2tp.json")});
  ASSERT_EQ(reinstall.exitCode, 0) << reinstall.err;
  EXPECT_EQ(cofferTransactions() - coffer, 1u);
  // The selection's commit and its apply; the command's own commit finds
  // nothing left to write, and its apply nothing new to record.
  EXPECT_EQ(preferencesTransactions() - preferences, 2u);

  coffer = cofferTransactions();
  preferences = preferencesTransactions();
  ASSERT_EQ(tool({"apply"}).exitCode, 0);
  EXPECT_EQ(preferencesTransactions(), preferences);

  ASSERT_EQ(tool({"remove", example("l2tp.json")}).exitCode, 0);
  EXPECT_EQ(cofferTransactions() - coffer, 1u);
  EXPECT_EQ(tool({"secret", "export", "Harbour Office (L2TP)"}).exitCode, 4);
}

// A Coffer that cannot take the command's writes (another process reads it
// throughout, so the commit never gets its turn) fails the command, which
// leaves the Coffer and the preferences as they were.
TEST_F(DurableWrites, ACofferThatCannotCommitFailsTheInstallAndKeepsBoth) {
  ASSERT_EQ(tool({"install", example("pptp.json")}).exitCode, 0);
  std::string dump = tool({"dump"}).out;
  uint32_t coffer = cofferTransactions();

  sqlite3 *reader = nullptr;
  ASSERT_EQ(sqlite3_open_v2((storeDir() + "/coffer.db").c_str(), &reader, SQLITE_OPEN_READONLY,
                            nullptr),
            SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(reader, "BEGIN; SELECT count(*) FROM items", nullptr, nullptr, nullptr),
            SQLITE_OK);
  ToolResult result = tool({"install", example("l2tp.json")});
  sqlite3_exec(reader, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_close(reader);

  EXPECT_EQ(result.exitCode, 7) << result.err;
  EXPECT_NE(result.err.find("the Coffer did not keep the secrets"), std::string::npos)
      << result.err;
  EXPECT_EQ(tool({"dump"}).out, dump);
  EXPECT_EQ(cofferTransactions(), coffer);
}

}  // namespace
}  // namespace tw::test
