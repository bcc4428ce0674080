// The DebugLog file: opening it per the configuration, the start banner and
// level-filtered output.
#include "diag/debug_log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "api/configuration.h"
#include "platform/platform.h"
#include "platform/spin_guard.h"

namespace qv {

namespace {

std::atomic<std::FILE*> g_log_file{nullptr};

// RP1210_ReadMessage writes its trace outside ApiLock, so a write can meet a
// connect that reopens the file. This short lock keeps the stream alive
// while a text is written; it is held for one stdio call at most.
std::atomic_flag g_file_busy = ATOMIC_FLAG_INIT;

class FileGuard {
 public:
  FileGuard() : guard_(g_file_busy) {}

 private:
  platform::SpinGuard guard_;
};

void CloseFileLocked() {
  std::FILE* file = g_log_file.exchange(nullptr);
  if (file) std::fclose(file);
}

bool EmptyFile(const char* path) {
  std::FILE* file = platform::OpenFile(path, "w");
  if (!file) return false;
  std::fclose(file);
  return true;
}

// Opens LogPath for appending; a file above the size limit is emptied
// first. The limit is checked only here, so a running log may outgrow it.
std::FILE* OpenForAppend(const char* path) {
  std::FILE* file = platform::OpenFile(path, "a+");
  if (!file) return nullptr;
  std::fseek(file, 0, SEEK_END);
  long size = std::ftell(file);
  // A size that cannot be told (beyond what a long holds) counts as too big.
  if (size >= 0 && static_cast<unsigned long>(size) <= kLogSizeLimit) return file;
  std::fclose(file);
  if (!EmptyFile(path)) return nullptr;
  return platform::OpenFile(path, "a+");
}

void WriteBanner(std::FILE* file) {
  platform::LocalTime now = platform::GetLocalTime();
  std::fprintf(file,
               "\n[----------------Start Log -------------------]"
               "\n>>%04d/%02d/%02d-%02d:%02d:%02d.%03d",
               now.year, now.month, now.day, now.hour, now.minute, now.second,
               now.millisecond);
}

}  // namespace

int OpenDebugLog(bool banner) {
  FileGuard guard;
  if (banner) CloseFileLocked();
  if (g_config.log_level < 1) return 0;
  if (g_config.log_dir[0] == '\0') return 0;
  if (!platform::DirectoryExists(g_config.log_dir)) {
    platform::CreateOneDirectory(g_config.log_dir);
  }
  if (g_config.log_path[0] == '\0') return 0;
  CloseFileLocked();
  if (!g_config.log_append && !EmptyFile(g_config.log_path)) return 0;
  std::FILE* file = OpenForAppend(g_config.log_path);
  if (!file) return 0;
  if (banner) WriteBanner(file);
  g_log_file.store(file);
  return 1;
}

void CloseDebugLog() {
  FileGuard guard;
  CloseFileLocked();
}

bool LogWouldPrint(int32_t level) {
  return g_log_file.load() != nullptr && g_config.log_level != 0 && level <= g_config.log_level;
}

int LogPrint(int32_t level, int32_t ignored, const char* format, ...) {
  (void)ignored;
  if (!LogWouldPrint(level)) return 0;
  // On the caller's stack so that concurrent callers never share it. A
  // longer text is cut to what fits; the line is still written.
  char text[kLogTextSize];
  va_list args;
  va_start(args, format);
  int length = std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (length < 0) return 0;
  size_t count = static_cast<size_t>(length) < sizeof text ? static_cast<size_t>(length)
                                                           : sizeof text - 1;
  FileGuard guard;
  std::FILE* file = g_log_file.load();
  if (!file) return 0;
  std::fwrite(text, 1, count, file);
  return 1;
}

}  // namespace qv
