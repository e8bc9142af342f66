// Items in the Coffer's database. Uniqueness is the table's own constraint
// on (class, uniqueness key), so it holds between processes without any
// lock of ours.
#include "platform/coffer/item_store.hpp"

#include <openssl/rand.h>

#include <utility>
#include <vector>

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
  void bind(Statement &statement, int first = 1) const {
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
std::pair<sqlite3_int64, Item> readItem(const Statement &row) {
  Item item;
  item.itemClass = classFromText(row.text(1).value_or("")).value_or(ItemClass::GenericPassword);
  for (int i = 0; i < kStringAttributeCount; ++i) item.strings[i] = row.text(2 + i);
  item.accessible = row.text(6).value_or("");
  item.data = row.blob(7);
  item.certificate = row.blob(8);
  item.privateKey = row.blob(9);
  item.uniquenessKey = row.blob(10);
  item.persistentReference = row.blob(11);
  return {row.integer(0), std::move(item)};
}

VltStatus selectItems(Database &db, const Query &query, const char *limit,
                      std::vector<std::pair<sqlite3_int64, Item>> &rows) {
  Filter filter = filterOf(query);
  Statement statement;
  std::string sql =
      std::string("SELECT ") + kItemColumns + " FROM items" + filter.sql + " ORDER BY id" + limit;
  if (VltStatus status = db.prepare(sql, statement)) return status;
  filter.bind(statement);
  int result;
  while ((result = statement.step()) == SQLITE_ROW) rows.push_back(readItem(statement));
  return statusOf(result);
}

// Writes every column but the id, the class and the persistent reference.
VltStatus rewrite(Database &db, sqlite3_int64 id, const Item &item) {
  Statement statement;
  VltStatus status = db.prepare(
      "UPDATE items SET service = ?, account = ?, label = ?, description = ?, accessible = ?, "
      "data = ?, uniqueness = ? WHERE id = ?",
      statement);
  if (status) return status;
  for (int i = 0; i < kStringAttributeCount; ++i) statement.bindText(1 + i, item.strings[i]);
  statement.bindText(5, item.accessible);
  statement.bindBlob(6, item.data);
  statement.bindBlob(7, item.uniquenessKey);
  statement.bindInteger(8, id);
  return statusOf(statement.step());
}

}  // namespace

VltStatus findFirst(Database &db, const Query &query, Item &item) {
  std::vector<std::pair<sqlite3_int64, Item>> rows;
  if (VltStatus status = selectItems(db, query, " LIMIT 1", rows)) return status;
  if (rows.empty()) return kVltErrorItemNotFound;
  item = std::move(rows.front().second);
  return kVltSuccess;
}

VltStatus insert(Database &db, Item &item) {
  unsigned char reference[kPersistentReferenceSize];
  if (RAND_bytes(reference, sizeof reference) != 1) return kVltErrorStore;
  item.persistentReference.assign(reinterpret_cast<char *>(reference), sizeof reference);

  Transaction transaction(db);
  if (VltStatus status = transaction.begin()) return status;
  Statement statement;
  VltStatus status = db.prepare(
      "INSERT INTO items (class, service, account, label, description, accessible, data, "
      "certificate, private_key, uniqueness, persistent_ref) "
      "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
      statement);
  if (status) return status;
  statement.bindText(1, PVStringGetCStringPtr(classConstant(item.itemClass)));
  for (int i = 0; i < kStringAttributeCount; ++i) statement.bindText(2 + i, item.strings[i]);
  statement.bindText(6, item.accessible);
  statement.bindBlob(7, item.data);
  statement.bindBlob(8, item.certificate);
  statement.bindBlob(9, item.privateKey);
  statement.bindBlob(10, item.uniquenessKey);
  statement.bindBlob(11, item.persistentReference);
  if (VltStatus status = statusOf(statement.step())) return status;
  return transaction.commit();
}

VltStatus update(Database &db, const Query &query, const Changes &changes) {
  Transaction transaction(db);
  if (VltStatus status = transaction.begin()) return status;
  std::vector<std::pair<sqlite3_int64, Item>> rows;
  if (VltStatus status = selectItems(db, query, "", rows)) return status;
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
    if (VltStatus status = rewrite(db, id, item)) return status;
  }
  return transaction.commit();
}

VltStatus remove(Database &db, const Query &query) {
  Transaction transaction(db);
  if (VltStatus status = transaction.begin()) return status;
  Filter filter = filterOf(query);
  Statement statement;
  if (VltStatus status = db.prepare("DELETE FROM items" + filter.sql, statement)) return status;
  filter.bind(statement);
  if (VltStatus status = statusOf(statement.step())) return status;
  if (db.changes() == 0) return kVltErrorItemNotFound;
  return transaction.commit();
}

}  // namespace vlt
