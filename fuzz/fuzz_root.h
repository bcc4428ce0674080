// A throw-away QVRP32_ROOT (the folder that stands for drive C:) for the fuzz
// programs that read files: made below $TMPDIR at first use, removed at exit.
#pragma once

#include <ftw.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

inline const std::string& FuzzRoot() {
  // Never destroyed: the clean-up at exit still needs it.
  static const std::string& root = *[] {
    const char* tmp = std::getenv("TMPDIR");
    auto* path = new std::string(std::string(tmp && *tmp ? tmp : "/tmp") + "/qvfuzz.XXXXXX");
    if (!mkdtemp(path->data())) std::abort();
    setenv("QVRP32_ROOT", path->c_str(), 1);
    std::atexit([] {
      nftw(FuzzRoot().c_str(), [](const char* p, const struct stat*, int, FTW*) { return std::remove(p); },
           8, FTW_DEPTH | FTW_PHYS);
    });
    return path;
  }();
  return root;
}

// Writes `data` as the file at `relative` (slashes) below the root; the
// folders on the way are made as needed.
inline void WriteRootFile(const std::string& relative, const uint8_t* data, size_t size) {
  const std::string path = FuzzRoot() + "/" + relative;
  for (size_t slash = path.find('/', FuzzRoot().size() + 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), 0700);
  }
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) std::abort();
}
