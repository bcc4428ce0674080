#include "support/test_root.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace qvtest {

TestRoot::TestRoot() {
  std::string tmpl = (fs::temp_directory_path() / "qvrp32-root-XXXXXX").string();
  if (!mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
  path_ = tmpl;
  setenv("QVRP32_ROOT", path_.c_str(), 1);
}

TestRoot::~TestRoot() {
  std::error_code ec;
  fs::remove_all(path_, ec);
}

std::string TestRoot::HostPath(const std::string& windows_path) const {
  std::string rest = windows_path;
  if (rest.size() >= 2 && rest[1] == ':') rest = rest.substr(2);
  for (char& c : rest) {
    if (c == '\\') c = '/';
  }
  if (!rest.empty() && rest[0] != '/') rest = "/" + rest;
  return path_ + rest;
}

void TestRoot::WriteFile(const std::string& windows_path, const std::string& text) const {
  fs::path p = HostPath(windows_path);
  fs::create_directories(p.parent_path());
  std::ofstream(p, std::ios::binary) << text;
}

std::string TestRoot::ReadFile(const std::string& windows_path) const {
  std::ifstream in(HostPath(windows_path), std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool TestRoot::Exists(const std::string& windows_path) const {
  return fs::exists(HostPath(windows_path));
}

}  // namespace qvtest
