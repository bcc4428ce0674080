// A throw-away QVRP32_ROOT (the folder that stands for drive C:) for a test.
#pragma once

#include <string>

namespace qvtest {

class TestRoot {
 public:
  TestRoot();   // creates a fresh folder and points QVRP32_ROOT at it
  ~TestRoot();  // removes it
  const std::string& path() const { return path_; }
  // Path below the root for a Windows path such as "C:\\Windows\\QVRP32.ini".
  std::string HostPath(const std::string& windows_path) const;
  // Writes a file (creating its folders) at a Windows path.
  void WriteFile(const std::string& windows_path, const std::string& text) const;
  std::string ReadFile(const std::string& windows_path) const;
  bool Exists(const std::string& windows_path) const;

 private:
  std::string path_;
};

}  // namespace qvtest
