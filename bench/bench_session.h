// The benchmark's set-up: a throw-away QVRP32_ROOT, the adapter simulator on
// a pseudo-terminal for the session requests, the library loaded with
// dlopen, and a fast feeder of numbered J1939 frames through the
// simulator's side of the line.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "qvrp32.h"
#include "qvsim/simulator.h"

namespace qvbench {

// The sequence number a run ends with: readers stop when they decode it.
constexpr uint32_t kStopSequence = 0xFFFFFFFFu;

struct Library {
  void* handle = nullptr;
  decltype(&::RP1210_ClientConnect) ClientConnect = nullptr;
  decltype(&::RP1210_ClientDisconnect) ClientDisconnect = nullptr;
  decltype(&::RP1210_SendMessage) SendMessage = nullptr;
  decltype(&::RP1210_ReadMessage) ReadMessage = nullptr;
  decltype(&::RP1210_SendCommand) SendCommand = nullptr;
};

class BenchSession {
 public:
  BenchSession(int frame_format, int log_level);
  ~BenchSession();
  BenchSession(const BenchSession&) = delete;
  BenchSession& operator=(const BenchSession&) = delete;

  // Root and simulator; false (with *why) when either cannot be made.
  bool Start(std::string* why);
  int frame_format() const { return frame_format_; }
  std::string SlavePath() const { return sim_->SlavePath(); }

  // dlopen, connect client 1 on J1939 and let every message through.
  bool OpenLibrary(const std::string& path, std::string* why);
  void CloseLibrary();
  const Library& lib() const { return lib_; }

  // Writes `count` numbered messages from `first` on as frames in one write
  // (count <= kMaxBatch). Allocates nothing.
  static constexpr uint32_t kMaxBatch = 512;
  void WriteMessages(uint32_t first, uint32_t count);

 private:
  int frame_format_;
  int log_level_;
  std::string root_;
  std::unique_ptr<qvsim::Simulator> sim_;
  Library lib_;
  qvsim::Bytes payload_;  // the 0x97 payload; its data starts with the number
  size_t number_at_ = 0;
  qvsim::Bytes batch_;
};

// Sequence number from a delivered J1939 message (4-byte stamp, PGN, how,
// source, destination, data), or from a 0x97 payload; false when too short.
bool NumberFromDelivered(const uint8_t* message, int length, uint32_t* number);
bool NumberFromPayload(const uint8_t* payload, int length, uint32_t* number);

}  // namespace qvbench
