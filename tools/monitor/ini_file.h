// A small reader for the INI files RP1210 applications use to find drivers
// (RP121032.ini and the vendor's own file). Like the Windows profile
// functions, section and key names match without regard to case.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace rp1210mon {

class IniFile {
 public:
  // Lines are "[Section]", "Key=Value" or comments starting with ';' or '#'.
  // Spaces around names and values are dropped; a key before any section
  // and lines without '=' are ignored. The first of repeated keys wins, as
  // with GetPrivateProfileString.
  static IniFile Parse(const std::string& text);
  static bool Load(const std::string& path, IniFile* ini);

  bool HasSection(const std::string& section) const;
  std::string Get(const std::string& section, const std::string& key,
                  const std::string& fallback = "") const;
  std::vector<std::string> Sections() const;

 private:
  struct Section {
    std::string name;
    std::vector<std::pair<std::string, std::string>> values;
  };
  const Section* Find(const std::string& section) const;
  std::vector<Section> sections_;
};

// Splits a comma-separated INI list such as "QVRP32,OTHER" or "1,2,3".
std::vector<std::string> SplitList(const std::string& text);

}  // namespace rp1210mon
