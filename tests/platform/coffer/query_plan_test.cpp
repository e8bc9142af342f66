// The Coffer's searches use an index: a lookup costs the same in a Coffer
// of ten items and of ten thousand. Every combination of attributes a query
// can name is tried, through the statements the item store itself runs.
#include <sqlite3.h>

#include <string>

#include "platform/coffer/database.hpp"
#include "platform/coffer/item_store.hpp"
#include "support/test_support.hpp"

namespace {

// The attributes a query can name, one bit each.
enum Attribute {
  kClass,
  kServiceName,
  kAccountName,
  kLabelText,
  kDescriptionText,
  kAccessible,
  kObject,
  kPersistentReference,
  kAttributeCount
};

vlt::Query queryNaming(unsigned attributes) {
  vlt::Query query;
  auto names = [&](Attribute a) { return (attributes >> a & 1) != 0; };
  if (names(kClass)) query.itemClass = vlt::ItemClass::GenericPassword;
  const Attribute strings[] = {kServiceName, kAccountName, kLabelText, kDescriptionText};
  for (int i = 0; i < vlt::kStringAttributeCount; ++i) {
    if (names(strings[i])) query.strings[i] = "x";
  }
  if (names(kAccessible)) query.accessible = "ak";
  // An object decides the class, as the Coffer's query parser does.
  if (names(kObject)) {
    query.itemClass = vlt::ItemClass::Certificate;
    query.certificateKey = "issuer and serial";
  }
  if (names(kPersistentReference)) query.persistentReference = "reference";
  return query;
}

// Whether the query names something that picks out items: a service, an
// object or a persistent reference. Nothing else the system asks for; a
// query naming none of them asks for a whole class or the whole Coffer.
bool picksOutItems(unsigned attributes) {
  return (attributes & (1u << kServiceName | 1u << kObject | 1u << kPersistentReference)) != 0;
}

std::string planOf(sql::Database &db, const std::string &statement) {
  sql::Statement explain(db, "EXPLAIN QUERY PLAN " + statement);
  std::string plan;
  while (explain.step()) plan += std::string(explain.bytes(3)) + "\n";
  return plan;
}

using CofferQueryPlans = tw::test::StoreTest;

TEST_F(CofferQueryPlans, EverySearchThatPicksOutItemsUsesAnIndex) {
  vlt::Database coffer(storeDir());
  int checked = 0;
  for (unsigned attributes = 0; attributes < 1u << kAttributeCount; ++attributes) {
    if (!picksOutItems(attributes)) continue;
    for (const std::string &statement : vlt::searches(queryNaming(attributes))) {
      std::string plan = planOf(coffer.connection(), statement);
      EXPECT_EQ(plan.find("SCAN items"), std::string::npos) << statement << "\n" << plan;
      EXPECT_NE(plan.find("USING"), std::string::npos) << statement << "\n" << plan;
      ++checked;
    }
  }
  EXPECT_GT(checked, 0);
}

// A Coffer made before the index existed gets it when first opened, and
// keeps every item.
TEST_F(CofferQueryPlans, AnOlderCofferGetsTheIndexWhenOpened) {
  ASSERT_EQ(tw::test::addCofferPassword("svc", "secret", "acct"), kVltSuccess);
  {
    vlt::Database coffer(storeDir());
    coffer.connection().execute("DROP INDEX items_by_service");
  }
  vlt::Database reopened(storeDir());
  std::string plan = planOf(reopened.connection(),
                            vlt::searches(queryNaming(1u << kClass | 1u << kServiceName))[0]);
  EXPECT_NE(plan.find("items_by_service"), std::string::npos) << plan;
  EXPECT_TRUE(tw::test::hasCofferItem("svc"));
}

}  // namespace
