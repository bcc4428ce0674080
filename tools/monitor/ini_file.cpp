#include "ini_file.h"

#include <cctype>
#include <fstream>
#include <sstream>

namespace rp1210mon {

namespace {

std::string Trim(const std::string& text) {
  size_t begin = 0;
  size_t end = text.size();
  while (begin < end && std::isspace(static_cast<unsigned char>(text[begin]))) ++begin;
  while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) --end;
  return text.substr(begin, end - begin);
}

bool SameName(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

}  // namespace

IniFile IniFile::Parse(const std::string& text) {
  IniFile ini;
  std::istringstream lines(text);
  std::string line;
  Section* current = nullptr;
  while (std::getline(lines, line)) {
    line = Trim(line);  // also drops the '\r' of CRLF files
    if (line.empty() || line[0] == ';' || line[0] == '#') continue;
    if (line[0] == '[') {
      const size_t close = line.find(']');
      if (close == std::string::npos) continue;
      const std::string name = Trim(line.substr(1, close - 1));
      current = nullptr;
      for (Section& s : ini.sections_) {
        if (SameName(s.name, name)) current = &s;
      }
      if (current == nullptr) {
        ini.sections_.push_back({name, {}});
        current = &ini.sections_.back();
      }
      continue;
    }
    const size_t equals = line.find('=');
    if (current == nullptr || equals == std::string::npos) continue;
    current->values.emplace_back(Trim(line.substr(0, equals)), Trim(line.substr(equals + 1)));
  }
  return ini;
}

bool IniFile::Load(const std::string& path, IniFile* ini) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  std::ostringstream text;
  text << file.rdbuf();
  *ini = Parse(text.str());
  return true;
}

const IniFile::Section* IniFile::Find(const std::string& section) const {
  for (const Section& s : sections_) {
    if (SameName(s.name, section)) return &s;
  }
  return nullptr;
}

bool IniFile::HasSection(const std::string& section) const { return Find(section) != nullptr; }

std::string IniFile::Get(const std::string& section, const std::string& key,
                         const std::string& fallback) const {
  const Section* s = Find(section);
  if (s == nullptr) return fallback;
  for (const auto& entry : s->values) {
    if (SameName(entry.first, key)) return entry.second;
  }
  return fallback;
}

std::vector<std::string> IniFile::Sections() const {
  std::vector<std::string> names;
  for (const Section& s : sections_) names.push_back(s.name);
  return names;
}

std::vector<std::string> SplitList(const std::string& text) {
  std::vector<std::string> items;
  std::istringstream stream(text);
  std::string item;
  while (std::getline(stream, item, ',')) {
    item = Trim(item);
    if (!item.empty()) items.push_back(item);
  }
  return items;
}

}  // namespace rp1210mon
