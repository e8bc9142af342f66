#include "output.hpp"

#include <algorithm>
#include <cstdio>

namespace tarnwick {

void printJson(const Json &json) { std::printf("%s\n", json.dump(2).c_str()); }

void printTable(const std::vector<std::string> &header,
                const std::vector<std::vector<std::string>> &rows) {
  std::vector<size_t> widths(header.size());
  for (size_t column = 0; column < header.size(); ++column) {
    widths[column] = header[column].size();
    for (const auto &row : rows) widths[column] = std::max(widths[column], row[column].size());
  }
  auto printRow = [&](const std::vector<std::string> &row) {
    std::string line;
    for (size_t column = 0; column < row.size(); ++column) {
      line += row[column];
      if (column + 1 < row.size())
        line += std::string(widths[column] - row[column].size() + 2, ' ');
    }
    std::printf("%s\n", line.c_str());
  };
  printRow(header);
  for (const auto &row : rows) printRow(row);
}

void printFields(const Json &object, size_t indent) {
  size_t width = 0;
  for (const auto &[key, value] : object.items()) {
    if (!value.is_object() || value.contains("$data")) width = std::max(width, key.size());
  }
  std::string pad(indent, ' ');
  for (const auto &[key, value] : object.items()) {
    if (value.is_object() && !value.contains("$data")) {
      std::printf("%s%s\n", pad.c_str(), key.c_str());
      printFields(value, indent + 2);
    } else {
      std::printf("%s%-*s  %s\n", pad.c_str(), static_cast<int>(width), key.c_str(),
                  tableText(value).c_str());
    }
  }
}

}  // namespace tarnwick
