// Items in the Coffer's database. Uniqueness is the table's own constraint
// on (class, uniqueness key), so it holds between processes without any
// lock of ours.
#include "platform/coffer/item_store.hpp"

#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/random/random.hpp"

namespace vlt {

namespace {

constexpr size_t kPersistentReferenceSize = 16;
constexpr const char *kStringColumns[kStringAttributeCount] = {"service", "account", "label",
                                                               "description"};
constexpr const char *kItemColumns =
    "id, class, service, account, label, description, accessible, data, certificate, "
    "private_key, uniqueness, persistent_ref";

// The WHERE clause of a query and the values it binds, in order.
struct Filter {
  std::string sql;
  std::vector<std::pair<std::string, bool>> values;  // value, bound as a blob

  void add(const char *column, std::string value, bool blob) {
    sql += sql.empty() ? " WHERE " : " AND ";
    sql += column;
    sql += " = ?";
    values.emplace_back(std::move(value), blob);
  }
  void bind(sql::Statement &statement, int first = 1) const {
    for (size_t i = 0; i < values.size(); ++i) {
      int index = first + static_cast<int>(i);
      if (values[i].second) {
        statement.bindBlob(index, values[i].first);
      } else {
        statement.bindText(index, values[i].first);
      }
    }
  }
};

Filter filterOf(const Query &query) {
  Filter filter;
  if (query.itemClass) {
    filter.add("class", PVStringGetCStringPtr(classConstant(*query.itemClass)), false);
  }
  for (int i = 0; i < kStringAttributeCount; ++i) {
    if (query.strings[i]) filter.add(kStringColumns[i], *query.strings[i], false);
  }
  if (query.accessible) filter.add("accessible", *query.accessible, false);
  if (query.certificateKey) filter.add("uniqueness", *query.certificateKey, true);
  if (query.persistentReference) filter.add("persistent_ref", *query.persistentReference, true);
  return filter;
}

// Reads a row selected with kItemColumns.
std::pair<int64_t, Item> readItem(const sql::Statement &row) {
  Item item;
  item.itemClass = classFromText(row.text(1).value_or("")).value_or(ItemClass::GenericPassword);
  for (int i = 0; i < kStringAttributeCount; ++i) item.strings[i] = row.text(2 + i);
  item.accessible = row.text(6).value_or("");
  item.data = row.bytes(7);
  item.certificate = row.bytes(8);
  item.privateKey = row.bytes(9);
  item.uniquenessKey = row.bytes(10);
  item.persistentReference = row.bytes(11);
  return {row.integer(0), std::move(item)};
}

std::string selectStatement(const Filter &filter, const char *limit) {
  return std::string("SELECT ") + kItemColumns + " FROM items" + filter.sql + " ORDER BY id" +
         limit;
}

std::string deleteStatement(const Filter &filter) { return "DELETE FROM items" + filter.sql; }

std::vector<std::pair<int64_t, Item>> selectItems(sql::Database &db, const Query &query,
                                                  const char *limit) {
  Filter filter = filterOf(query);
  sql::Statement statement(db, selectStatement(filter, limit));
  filter.bind(statement);
  std::vector<std::pair<int64_t, Item>> rows;
  while (statement.step()) rows.push_back(readItem(statement));
  return rows;
}

// Writes every column but the id, the class and the persistent reference.
void rewrite(sql::Database &db, int64_t id, const Item &item) {
  sql::Statement statement(
      db,
      "UPDATE items SET service = ?, account = ?, label = ?, description = ?, accessible = ?, "
      "data = ?, uniqueness = ? WHERE id = ?");
  for (int i = 0; i < kStringAttributeCount; ++i) statement.bindTextOrNull(1 + i, item.strings[i]);
  statement.bindText(5, item.accessible);
  statement.bindBlob(6, item.data);
  statement.bindBlob(7, item.uniquenessKey);
  statement.bind(8, id);
  statement.run();
}

}  // namespace

std::vector<std::string> searches(const Query &query) {
  Filter filter = filterOf(query);
  return {selectStatement(filter, " LIMIT 1"), selectStatement(filter, ""),
          deleteStatement(filter)};
}

VltStatus findFirst(sql::Database &db, const Query &query, Item &item) {
  auto rows = selectItems(db, query, " LIMIT 1");
  if (rows.empty()) return kVltErrorItemNotFound;
  item = std::move(rows.front().second);
  return kVltSuccess;
}

std::vector<Item> findAll(sql::Database &db, const Query &query) {
  std::vector<Item> items;
  for (auto &row : selectItems(db, query, "")) items.push_back(std::move(row.second));
  return items;
}

void insert(sql::Database &db, Item &item) {
  unsigned char reference[kPersistentReferenceSize];
  if (!platform::randomBytes(reference, sizeof reference)) {
    throw std::runtime_error("no random bytes");
  }
  item.persistentReference.assign(reinterpret_cast<char *>(reference), sizeof reference);

  sql::Transaction transaction(db, sql::Transaction::kWrite);
  sql::Statement statement(
      db,
      "INSERT INTO items (class, service, account, label, description, accessible, data, "
      "certificate, private_key, uniqueness, persistent_ref) "
      "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  statement.bindText(1, PVStringGetCStringPtr(classConstant(item.itemClass)));
  for (int i = 0; i < kStringAttributeCount; ++i) statement.bindTextOrNull(2 + i, item.strings[i]);
  statement.bindText(6, item.accessible);
  statement.bindBlob(7, item.data);
  statement.bindBlob(8, item.certificate);
  statement.bindBlob(9, item.privateKey);
  statement.bindBlob(10, item.uniquenessKey);
  statement.bindBlob(11, item.persistentReference);
  statement.run();
  transaction.commit();
}

VltStatus update(sql::Database &db, const Query &query, const Changes &changes) {
  sql::Transaction transaction(db, sql::Transaction::kWrite);
  auto rows = selectItems(db, query, "");
  if (rows.empty()) return kVltErrorItemNotFound;
  for (auto &[id, item] : rows) {
    for (int i = 0; i < kStringAttributeCount; ++i) {
      if (changes.strings[i]) item.strings[i] = changes.strings[i];
    }
    if (changes.accessible) item.accessible = *changes.accessible;
    if (changes.data) item.data = *changes.data;
    // A password renamed onto another's service and account is a duplicate:
    // the table's constraint refuses it and the whole update rolls back.
    if (item.itemClass == ItemClass::GenericPassword)
      item.uniquenessKey = passwordKey(item.strings);
    rewrite(db, id, item);
  }
  transaction.commit();
  return kVltSuccess;
}

VltStatus remove(sql::Database &db, const Query &query) {
  sql::Transaction transaction(db, sql::Transaction::kWrite);
  Filter filter = filterOf(query);
  sql::Statement statement(db, deleteStatement(filter));
  filter.bind(statement);
  statement.run();
  if (db.changes() == 0) return kVltErrorItemNotFound;
  transaction.commit();
  return kVltSuccess;
}

}  // namespace vlt
