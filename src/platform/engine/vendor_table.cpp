#include "platform/engine/vendor_table.hpp"

#include <fstream>
#include <sstream>

namespace engine {
namespace {

std::string trimmed(const std::string &text) {
  size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return "";
  size_t end = text.find_last_not_of(" \t\r");
  return text.substr(begin, end - begin + 1);
}

// "VPN.Key", "Vendor.Key" or "\"text\""; false when it is none of them.
bool parseSource(const std::string &text, VendorSource &source) {
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    source = {VendorSource::literal, text.substr(1, text.size() - 2)};
    return true;
  }
  for (auto [prefix, layer] :
       {std::pair{"VPN.", VendorSource::vpn}, std::pair{"Vendor.", VendorSource::vendor}}) {
    std::string p = prefix;
    if (text.size() > p.size() && text.compare(0, p.size(), p) == 0) {
      source = {layer, text.substr(p.size())};
      return true;
    }
  }
  return false;
}

// "account-password", "shared-secret" or "proxy-password"; false for
// anything else.
bool parseCredential(const std::string &text, Credential &credential) {
  for (auto [name, which] : {std::pair{"account-password", Credential::accountPassword},
                             std::pair{"shared-secret", Credential::sharedSecret},
                             std::pair{"proxy-password", Credential::proxyPassword}}) {
    if (text == name) {
      credential = which;
      return true;
    }
  }
  return false;
}

}  // namespace

VendorTable VendorTable::load(const std::string &directory) {
  std::ifstream file(directory + "/" + kVendorTableName);
  if (!file) return {};
  std::stringstream text;
  text << file.rdbuf();
  return parse(text.str());
}

VendorTable VendorTable::parse(const std::string &text) {
  VendorTable table;
  VendorPlugin *section = nullptr;
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    line = trimmed(line);
    if (line.empty() || line[0] == '#') continue;
    std::string where = std::string(kVendorTableName) + " line " + std::to_string(number) + ": ";
    if (line.front() == '[' && line.back() == ']') {
      section = &table.plugins_[trimmed(line.substr(1, line.size() - 2))];
      continue;
    }
    if (!section) continue;  // nothing to attach it to; every section starts afresh
    size_t equals = line.find('=');
    std::string key = trimmed(line.substr(0, equals));
    std::string value = equals == std::string::npos ? "" : trimmed(line.substr(equals + 1));
    VendorSource source;
    Credential credential = Credential::accountPassword;
    if (equals == std::string::npos || value.empty()) {
      section->error = where + "expected KEY = VALUE";
    } else if (key == "service-type") {
      section->serviceType = value;
    } else if (key == "secret") {
      section->secrets[value] = Credential::accountPassword;
    } else if (key.rfind("secret.", 0) == 0 && key.size() > 7 &&
               parseCredential(value, credential)) {
      section->secrets[key.substr(7)] = credential;
    } else if (key.rfind("secret.", 0) == 0) {
      section->error = where + "a secret takes account-password, shared-secret or proxy-password";
    } else if (key.rfind("data.", 0) == 0 && key.size() > 5 && parseSource(value, source)) {
      section->data[key.substr(5)] = source;
    } else if (key.rfind("data.", 0) == 0) {
      section->error = where + "a data key takes VPN.KEY, Vendor.KEY or \"TEXT\"";
    } else {
      section->error = where + "unknown key \"" + key + "\"";
    }
  }
  for (auto &[subtype, plugin] : table.plugins_) {
    if (plugin.error.empty() && plugin.serviceType.empty()) {
      plugin.error = std::string(kVendorTableName) + ": [" + subtype + "] names no service-type";
    }
  }
  return table;
}

const VendorPlugin *VendorTable::find(const std::string &subtype) const {
  auto found = plugins_.find(subtype);
  return found == plugins_.end() ? nullptr : &found->second;
}

}  // namespace engine
