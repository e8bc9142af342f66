#include "platform/engine/memory.hpp"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace engine {
namespace {

constexpr char kHeader[] = "tarnwick networkmanager sync 1";
constexpr char kTrailer[] = "end";

}  // namespace

SyncMemory SyncMemory::load(const std::string &directory) {
  SyncMemory memory;
  std::ifstream file(directory + "/" + kMemoryName);
  std::string line;
  if (!file || !std::getline(file, line) || line != kHeader) return {};
  if (!std::getline(file, line) || line.rfind("instance ", 0) != 0) return {};
  memory.instance = line.substr(9);
  // The last line says the file is whole.
  while (std::getline(file, line) && line != kTrailer) {
    std::istringstream fields(line);
    std::string id;
    Remembered entry;
    if (!(fields >> id >> entry.digest >> entry.path)) return {};
    memory.services[id] = std::move(entry);
  }
  if (line != kTrailer || std::getline(file, line)) return {};
  return memory;
}

bool SyncMemory::save(const std::string &directory) const {
  std::string text = std::string(kHeader) + "\ninstance " + instance + "\n";
  for (const auto &[id, entry] : services)
    text += id + ' ' + entry.digest + ' ' + entry.path + '\n';
  text += std::string(kTrailer) + '\n';
  std::string path = directory + "/" + kMemoryName;
  std::string temporary = path + ".new-" + std::to_string(getpid());
  {
    std::ofstream file(temporary, std::ios::trunc);
    if (!(file << text) || !file.flush()) {
      std::remove(temporary.c_str());
      return false;
    }
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    std::remove(temporary.c_str());
    return false;
  }
  return true;
}

}  // namespace engine
