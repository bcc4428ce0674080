// The two receivers a run compares: RP1210_ReadMessage in a blocking loop,
// and a plain reader of the pseudo-terminal that only decodes frames (what
// any receiver must at least do). Each tallies the numbered messages it gets.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "bench_session.h"

namespace qvbench {

int64_t NowNs();  // CLOCK_MONOTONIC

// What one run received. Sized before the run, so taking a message
// allocates nothing.
struct Tally {
  explicit Tally(uint32_t capacity) : seen(capacity, 0), arrival_ns(capacity, 0) {}
  std::vector<uint8_t> seen;
  std::vector<int64_t> arrival_ns;
  std::atomic<uint64_t> distinct{0};
  std::atomic<int64_t> last_arrival_ns{0};
  uint64_t duplicates = 0;
  uint64_t out_of_range = 0;
  void Note(uint32_t number);
};

class Receiver {
 public:
  virtual ~Receiver() = default;
  // Starts the receiving thread; it ends when it gets kStopSequence.
  virtual bool Start(Tally* tally) = 0;
  void Join() {
    if (thread_.joinable()) thread_.join();
  }
  bool Running() const { return running_.load(); }

 protected:
  std::thread thread_;
  std::atomic<bool> running_{false};
};

class LibraryReceiver : public Receiver {
 public:
  explicit LibraryReceiver(const Library& lib) : lib_(lib) {}
  bool Start(Tally* tally) override;

 private:
  const Library& lib_;
};

class PlainReceiver : public Receiver {
 public:
  PlainReceiver(std::string path, int frame_format)
      : path_(std::move(path)), frame_format_(frame_format) {}
  ~PlainReceiver() override;
  bool Start(Tally* tally) override;

 private:
  std::string path_;
  int frame_format_;
  int fd_ = -1;
};

}  // namespace qvbench
