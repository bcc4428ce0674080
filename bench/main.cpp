// qvrp32-bench: the receive path under load, against a plain reader of the
// same pseudo-terminal, plus latency, round trips and idle cost. Prints one
// figure per line: "<name> <value>".
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench_session.h"
#include "heap_counter.h"
#include "readers.h"

namespace qvbench {
namespace {

struct Options {
  double seconds = 2.0;          // feeding time of each throughput run
  double latency_seconds = 2.0;  // at 500 messages/s
  int round_trips = 200;
  double idle_seconds = 2.0;
  std::vector<int> formats = {0, 1};
  std::vector<uint32_t> rates = {10000, 50000, 100000, 200000, 0};  // 0: unthrottled
  int log_level = 0;
  std::string library = QVRP32_LIBRARY_PATH;
};

constexpr uint32_t kUnthrottledCap = 4000000;  // messages in one unthrottled run
constexpr int64_t kQuietNs = 500000000;        // a run has drained after 0.5 s of nothing

int64_t CpuNs(clockid_t clock) {
  timespec t;
  clock_gettime(clock, &t);
  return static_cast<int64_t>(t.tv_sec) * 1000000000LL + t.tv_nsec;
}

void SleepNs(int64_t ns) {
  if (ns <= 0) return;
  timespec t{static_cast<time_t>(ns / 1000000000LL), static_cast<long>(ns % 1000000000LL)};
  nanosleep(&t, nullptr);
}

void SleepUntilNs(int64_t when) {
  timespec t{static_cast<time_t>(when / 1000000000LL), static_cast<long>(when % 1000000000LL)};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &t, nullptr);
}

void Figure(const std::string& name, double value, int decimals = 0) {
  std::printf("%s %.*f\n", name.c_str(), decimals, value);
  std::fflush(stdout);
}

struct RunFigures {
  uint64_t sent = 0;
  uint64_t delivered = 0;
  double offered_per_s = 0;
  double delivered_per_s = 0;
  double cpu_us_per_msg = 0;
  uint64_t heap_calls = 0;
};

// Ends the receiver: the stop number is written until it has been seen (a
// ring reset can lose it).
void StopReceiver(BenchSession& session, Receiver& receiver) {
  for (int i = 0; i < 50 && receiver.Running(); ++i) {
    session.WriteMessages(kStopSequence, 1);
    for (int k = 0; k < 100 && receiver.Running(); ++k) SleepNs(1000000);
  }
  receiver.Join();
}

// Feeds `rate` messages/s (0: as fast as the line takes them) for the
// configured time, waits for the receiver to drain, and measures.
RunFigures ThroughputRun(BenchSession& session, Receiver& receiver, uint32_t rate,
                         double seconds) {
  const uint32_t capacity =
      rate == 0 ? kUnthrottledCap : static_cast<uint32_t>(rate * seconds) + 1;
  auto tally = std::make_unique<Tally>(capacity);
  RunFigures f;
  if (!receiver.Start(tally.get())) return f;
  SleepNs(20000000);  // let it settle into its wait

  const int64_t process0 = CpuNs(CLOCK_PROCESS_CPUTIME_ID);
  const int64_t feeder0 = CpuNs(CLOCK_THREAD_CPUTIME_ID);
  OpenHeapWindow();
  const int64_t start = NowNs();
  const int64_t feed_ns = static_cast<int64_t>(seconds * 1e9);
  uint64_t sent = 0;
  for (;;) {
    const int64_t elapsed = NowNs() - start;
    if (elapsed >= feed_ns || sent >= capacity) break;
    uint64_t due = rate == 0 ? capacity
                             : std::min<uint64_t>(capacity, static_cast<uint64_t>(
                                                                 elapsed * 1e-9 * rate) + 1);
    const uint64_t batch = std::min<uint64_t>(due - sent, BenchSession::kMaxBatch);
    if (batch == 0) {
      SleepNs(100000);
      continue;
    }
    session.WriteMessages(static_cast<uint32_t>(sent), static_cast<uint32_t>(batch));
    sent += batch;
  }
  const int64_t fed = NowNs() - start;
  // Drained: everything arrived, or nothing more for a while.
  uint64_t last_count = 0;
  int64_t last_change = NowNs();
  while (tally->distinct.load(std::memory_order_acquire) < sent) {
    const uint64_t now_count = tally->distinct.load(std::memory_order_acquire);
    if (now_count != last_count) {
      last_count = now_count;
      last_change = NowNs();
    } else if (NowNs() - last_change > kQuietNs) {
      break;
    }
    SleepNs(1000000);
  }
  const int64_t feeder1 = CpuNs(CLOCK_THREAD_CPUTIME_ID);
  const int64_t process1 = CpuNs(CLOCK_PROCESS_CPUTIME_ID);
  f.heap_calls = CloseHeapWindow();
  StopReceiver(session, receiver);

  f.sent = sent;
  f.delivered = tally->distinct.load();
  f.offered_per_s = sent / (fed * 1e-9);
  const int64_t span = std::max<int64_t>(tally->last_arrival_ns.load() - start, fed);
  f.delivered_per_s = f.delivered / (span * 1e-9);
  const double receive_cpu_ns = static_cast<double>((process1 - process0) - (feeder1 - feeder0));
  f.cpu_us_per_msg = f.delivered > 0 ? receive_cpu_ns / 1000.0 / f.delivered : 0;
  return f;
}

struct Percentiles {
  double p50_us = 0, p99_us = 0;
  uint64_t samples = 0;
};

Percentiles Summarise(std::vector<int64_t>& ns) {
  Percentiles p;
  if (ns.empty()) return p;
  std::sort(ns.begin(), ns.end());
  p.samples = ns.size();
  p.p50_us = ns[ns.size() / 2] / 1000.0;
  p.p99_us = ns[std::min(ns.size() - 1, ns.size() * 99 / 100)] / 1000.0;
  return p;
}

// One message every 2 ms; latency from just before the write to the
// receiver's return.
Percentiles LatencyRun(BenchSession& session, Receiver& receiver, double seconds) {
  constexpr int64_t kPeriodNs = 2000000;  // 500 messages/s
  const uint32_t count = static_cast<uint32_t>(seconds * 500);
  auto tally = std::make_unique<Tally>(count);
  std::vector<int64_t> written(count, 0);
  if (!receiver.Start(tally.get())) return {};
  SleepNs(20000000);
  int64_t next = NowNs();
  for (uint32_t i = 0; i < count; ++i) {
    SleepUntilNs(next);
    written[i] = NowNs();
    session.WriteMessages(i, 1);
    next += kPeriodNs;
  }
  const int64_t give_up = NowNs() + kQuietNs;
  while (tally->distinct.load(std::memory_order_acquire) < count && NowNs() < give_up) {
    SleepNs(1000000);
  }
  StopReceiver(session, receiver);
  std::vector<int64_t> latencies;
  latencies.reserve(count);
  for (uint32_t i = 0; i < count; ++i) {
    if (tally->seen[i]) latencies.push_back(tally->arrival_ns[i] - written[i]);
  }
  return Summarise(latencies);
}

template <typename Call>
Percentiles RoundTrips(int count, uint64_t* heap_calls, Call call) {
  std::vector<int64_t> ns;
  ns.reserve(static_cast<size_t>(count));
  uint64_t heap = 0;
  for (int i = 0; i < count; ++i) {
    WatchThisThread(true);
    const int64_t t0 = NowNs();
    call();
    const int64_t t1 = NowNs();
    heap += ThisThreadHeapCalls();
    WatchThisThread(false);
    ns.push_back(t1 - t0);
  }
  *heap_calls = heap;
  return Summarise(ns);
}

std::string RateName(uint32_t rate) {
  return rate == 0 ? "unthrottled" : std::to_string(rate / 1000) + "k";
}

void Report(const std::string& prefix, const RunFigures& f) {
  Figure(prefix + ".offered_msgs_per_s", f.offered_per_s);
  Figure(prefix + ".delivered_msgs_per_s", f.delivered_per_s);
  Figure(prefix + ".lost", static_cast<double>(f.sent - f.delivered));
  Figure(prefix + ".cpu_us_per_msg", f.cpu_us_per_msg, 2);
}

int BenchFormat(const Options& o, int format) {
  const std::string ff = "ff" + std::to_string(format);
  BenchSession session(format, o.log_level);
  std::string why;
  if (!session.Start(&why)) {
    std::fprintf(stderr, "%s: %s\n", ff.c_str(), why.c_str());
    return 1;
  }
  // The plain reader first, while the library has the line closed.
  std::vector<RunFigures> plain;
  Percentiles plain_latency;
  {
    PlainReceiver receiver(session.SlavePath(), format);
    for (uint32_t rate : o.rates) {
      plain.push_back(ThroughputRun(session, receiver, rate, o.seconds));
      Report(ff + "." + RateName(rate) + ".plain", plain.back());
    }
    if (o.latency_seconds > 0) plain_latency = LatencyRun(session, receiver, o.latency_seconds);
  }
  Figure(ff + ".latency_500.plain.p50_us", plain_latency.p50_us, 1);
  Figure(ff + ".latency_500.plain.p99_us", plain_latency.p99_us, 1);

  if (!session.OpenLibrary(o.library, &why)) {
    std::fprintf(stderr, "%s: %s\n", ff.c_str(), why.c_str());
    return 1;
  }
  LibraryReceiver receiver(session.lib());
  for (size_t i = 0; i < o.rates.size(); ++i) {
    const RunFigures f = ThroughputRun(session, receiver, o.rates[i], o.seconds);
    const std::string prefix = ff + "." + RateName(o.rates[i]) + ".library";
    Report(prefix, f);
    Figure(prefix + ".heap_calls", static_cast<double>(f.heap_calls));
    if (plain[i].cpu_us_per_msg > 0) {
      Figure(prefix + ".cpu_ratio_to_plain", f.cpu_us_per_msg / plain[i].cpu_us_per_msg, 2);
    }
  }
  if (o.latency_seconds <= 0) {
    session.CloseLibrary();
    return 0;
  }
  Percentiles latency = LatencyRun(session, receiver, o.latency_seconds);
  Figure(ff + ".latency_500.library.p50_us", latency.p50_us, 1);
  Figure(ff + ".latency_500.library.p99_us", latency.p99_us, 1);

  // Round trips, on this thread, with the receiver's loop not running.
  const Library& lib = session.lib();
  uint64_t heap = 0;
  Percentiles command = RoundTrips(o.round_trips, &heap, [&] {
    lib.SendCommand(RP1210_Set_All_Filters_States_to_Pass, 1, nullptr, 0);
  });
  Figure(ff + ".send_command.p50_us", command.p50_us, 1);
  Figure(ff + ".send_command.p99_us", command.p99_us, 1);
  Figure(ff + ".send_command.heap_calls", static_cast<double>(heap));
  // EEC1 from address 0 to global: PGN, how/priority, source, destination, data.
  char message[] = {0x04, static_cast<char>(0xF0), 0x00, 0x03, 0x00, static_cast<char>(0xFF),
                    1, 2, 3, 4, 5, 6, 7, 8};
  Percentiles send = RoundTrips(o.round_trips, &heap, [&] {
    lib.SendMessage(1, message, sizeof message, 0, 0);
  });
  Figure(ff + ".send_message.p50_us", send.p50_us, 1);
  Figure(ff + ".send_message.p99_us", send.p99_us, 1);
  Figure(ff + ".send_message.heap_calls", static_cast<double>(heap));

  // A blocking read with nothing to read.
  Tally idle_tally(1);
  receiver.Start(&idle_tally);
  SleepNs(100000000);
  const int64_t process0 = CpuNs(CLOCK_PROCESS_CPUTIME_ID);
  const int64_t self0 = CpuNs(CLOCK_THREAD_CPUTIME_ID);
  const int64_t t0 = NowNs();
  SleepNs(static_cast<int64_t>(o.idle_seconds * 1e9));
  const double wall = static_cast<double>(NowNs() - t0);
  const double cpu = static_cast<double>((CpuNs(CLOCK_PROCESS_CPUTIME_ID) - process0) -
                                         (CpuNs(CLOCK_THREAD_CPUTIME_ID) - self0));
  StopReceiver(session, receiver);
  Figure(ff + ".idle_blocking_read.cpu_percent_of_core", 100.0 * cpu / wall, 3);
  session.CloseLibrary();
  return 0;
}

std::vector<uint32_t> ParseList(const char* text) {
  std::vector<uint32_t> out;
  for (const char* p = text; *p;) {
    out.push_back(static_cast<uint32_t>(std::strtoul(p, const_cast<char**>(&p), 10)));
    if (*p == ',') ++p;
    else if (*p) break;
  }
  return out;
}

void Usage() {
  std::fprintf(stderr,
               "usage: qvrp32-bench [--smoke | --throughput-only] [--seconds S] [--formats 0,1] "
               "[--rates 10000,50000,0] [--log-level N] [--library PATH]\n"
               "  rate 0 = unthrottled; --smoke: short runs, a quick check that all works\n");
}

}  // namespace
}  // namespace qvbench

int main(int argc, char** argv) {
  using namespace qvbench;
  Options o;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    const char* next = i + 1 < argc ? argv[i + 1] : nullptr;
    if (a == "--smoke") {
      o.seconds = 0.3;
      o.latency_seconds = 0.4;
      o.round_trips = 30;
      o.idle_seconds = 0.5;
    } else if (a == "--throughput-only") {
      // For instruction counts under callgrind: nothing but the feeding runs.
      o.latency_seconds = 0;
      o.round_trips = 0;
      o.idle_seconds = 0;
    } else if (a == "--seconds" && next) {
      o.seconds = std::atof(next);
      ++i;
    } else if (a == "--formats" && next) {
      o.formats.clear();
      for (uint32_t f : ParseList(next)) o.formats.push_back(static_cast<int>(f));
      ++i;
    } else if (a == "--rates" && next) {
      o.rates = ParseList(next);
      ++i;
    } else if (a == "--log-level" && next) {
      o.log_level = std::atoi(next);
      ++i;
    } else if (a == "--library" && next) {
      o.library = next;
      ++i;
    } else {
      Usage();
      return 2;
    }
  }
  int status = 0;
  for (int format : o.formats) status |= BenchFormat(o, format);
  return status;
}
