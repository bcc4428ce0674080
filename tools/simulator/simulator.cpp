// The adapter thread: reads requests from the pseudo-terminal's master side,
// answers them, and sends traffic while a channel is open.
#include "qvsim/simulator.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <thread>

#include "link/frame_codec.h"
#include "qvsim/synthetic_vehicle.h"
#include "qvsim/traffic.h"

namespace qvsim {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint16_t kBatteryCommand = 2002;
constexpr uint16_t kSetJ1708ModeCommand = 15;
// How long a frame may wait for room in the pseudo-terminal before it is
// dropped, as a bus adapter drops what the host does not take.
constexpr int kWriteRoomMs = 500;
// Between the bytes of a frame written one at a time, so that the reader
// sees each on its own.
constexpr auto kSplitBytePause = std::chrono::microseconds(200);

bool Contains(const std::vector<uint8_t>& list, uint8_t value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

bool Contains(const std::vector<uint16_t>& list, uint16_t value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

// Junk that can never complete or start a frame of the given format: no
// 0xA5 for the sync formats, no 0x01 start marker for the nibble format.
Bytes Garbage(int frame_format) {
  if (frame_format == 1) return {0x13, 0x5A, 0x77, 0x00, 0xEE};
  return {0x13, 0x5A, 0x00, 0x77, 0xA4, 0xEE};
}

void CorruptFrame(Bytes* frame, int frame_format) {
  if (frame->empty()) return;
  if (frame_format == 1) {
    // The checksum's low-nibble character sits just before the two zero
    // bytes; flipping its lowest bit keeps it a valid character.
    if (frame->size() >= 3) (*frame)[frame->size() - 3] ^= 0x01;
  } else {
    // Checksum (format 0) or end byte (format 2) is the last byte.
    frame->back() = static_cast<uint8_t>(frame->back() ^ 0x01);
  }
}

}  // namespace

struct Simulator::Impl {
  mutable std::mutex mu;  // configuration and the recorded state
  std::condition_variable received_cv;
  Config config;
  std::vector<Bytes> received;
  std::vector<bool> consumed;
  int handshakes = 0;            // since Start
  int bring_up_handshakes = 0;   // since the last 0x6F wake-up
  uint8_t channel_protocol = 0;
  bool channel_open = false;
  Clock::time_point channel_opened;
  // Set_J1708_Mode of the client: in mode 1 (a fresh client's) the library
  // ends every J1708 message it sends with a checksum byte.
  bool j1708_checksum = true;

  Traffic traffic = Traffic::kNone;
  std::vector<Clock::time_point> next_due;  // per VehicleSource
  uint32_t flood_sequence = 0;

  struct Replay {
    std::vector<std::pair<int64_t, CanFrame>> frames;
    bool loop = false;
    size_t next = 0;
    Clock::time_point start;
  } replay;

  struct Deferred {
    Clock::time_point due;
    Bytes payload;
  };
  std::vector<Deferred> deferred;

  std::mutex io_mu;  // the master fd and every write to it
  int master = -1;
  int slave = -1;
  std::string slave_path;
  int wake[2] = {-1, -1};
  bool stopping = false;
  // Set by Stop and HangUp before they wait for io_mu, so that a write
  // blocked on a host that reads nothing lets go.
  std::atomic<bool> abandon_writes{false};
  std::thread thread;
  qv::link::FrameDecoder decoder;

  void Run();
  void HandleRequest(const Bytes& request);
  void Answer(const Bytes& payload);  // now, or later when configured to be late
  void ScheduleTraffic(Clock::time_point now, int* timeout_ms);
  void WritePayload(const Bytes& payload);
  bool WriteAll(const uint8_t* data, size_t size, bool one_byte_each = false);
  void Wake() {
    if (wake[1] >= 0) {
      const uint8_t b = 1;
      (void)!write(wake[1], &b, 1);
    }
  }
};

Simulator::Simulator(Config config) : impl_(new Impl) { impl_->config = std::move(config); }

Simulator::~Simulator() {
  Stop();
  delete impl_;
}

bool Simulator::Start() {
  if (impl_->thread.joinable()) return true;
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0) return false;
  if (grantpt(master) != 0 || unlockpt(master) != 0) {
    close(master);
    return false;
  }
  const char* name = ptsname(master);
  if (!name) {
    close(master);
    return false;
  }
  // Our own slave fd keeps the pty alive while the library has it closed,
  // so the master never reads EIO between sessions.
  const int slave = open(name, O_RDWR | O_NOCTTY);
  if (slave < 0) {
    close(master);
    return false;
  }
  termios tio{};
  tcgetattr(slave, &tio);
  cfmakeraw(&tio);
  cfsetispeed(&tio, B115200);
  cfsetospeed(&tio, B115200);
  tcsetattr(slave, TCSANOW, &tio);
  fcntl(master, F_SETFL, fcntl(master, F_GETFL) | O_NONBLOCK);
  if (pipe(impl_->wake) != 0) {
    close(slave);
    close(master);
    return false;
  }
  fcntl(impl_->wake[0], F_SETFL, O_NONBLOCK);
  fcntl(impl_->wake[1], F_SETFL, O_NONBLOCK);
  {
    std::lock_guard<std::mutex> io(impl_->io_mu);
    impl_->master = master;
    impl_->slave = slave;
    impl_->slave_path = name;
    impl_->stopping = false;
    impl_->abandon_writes = false;
  }
  {
    std::lock_guard<std::mutex> lock(impl_->mu);
    impl_->handshakes = 0;
    impl_->bring_up_handshakes = 0;
    impl_->channel_open = false;
    impl_->decoder.Clear();
  }
  impl_->thread = std::thread([this] { impl_->Run(); });
  return true;
}

void Simulator::Stop() {
  if (!impl_->thread.joinable()) return;
  impl_->abandon_writes = true;
  {
    std::lock_guard<std::mutex> io(impl_->io_mu);
    impl_->stopping = true;
  }
  impl_->Wake();
  impl_->thread.join();
  std::lock_guard<std::mutex> io(impl_->io_mu);
  if (impl_->master >= 0) close(impl_->master);
  if (impl_->slave >= 0) close(impl_->slave);
  impl_->master = impl_->slave = -1;
  close(impl_->wake[0]);
  close(impl_->wake[1]);
  impl_->wake[0] = impl_->wake[1] = -1;
}

std::string Simulator::SlavePath() const {
  std::lock_guard<std::mutex> io(impl_->io_mu);
  return impl_->slave_path;
}

void Simulator::Configure(const Config& config) {
  std::lock_guard<std::mutex> lock(impl_->mu);
  impl_->config = config;
}

Config Simulator::CurrentConfig() const {
  std::lock_guard<std::mutex> lock(impl_->mu);
  return impl_->config;
}

void Simulator::SetTraffic(Traffic traffic) {
  {
    std::lock_guard<std::mutex> lock(impl_->mu);
    impl_->traffic = traffic;
    impl_->next_due.clear();
  }
  impl_->Wake();
}

bool Simulator::ReplayCandump(const std::string& path, bool loop) {
  std::ifstream in(path);
  if (!in) return false;
  Impl::Replay replay;
  std::string line;
  CanFrame frame;
  int64_t time_us = 0;
  while (std::getline(in, line)) {
    if (ParseCandumpLine(line, &frame, &time_us)) replay.frames.emplace_back(time_us, frame);
  }
  if (replay.frames.empty()) return false;
  // Logs are not always in time order once merged; play them as stamped.
  std::stable_sort(replay.frames.begin(), replay.frames.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  replay.loop = loop;
  replay.start = Clock::now();
  {
    std::lock_guard<std::mutex> lock(impl_->mu);
    impl_->replay = std::move(replay);
  }
  impl_->Wake();
  return true;
}

void Simulator::SendPayload(const Bytes& payload) { impl_->WritePayload(payload); }

void Simulator::SendRaw(const Bytes& bytes) {
  std::lock_guard<std::mutex> io(impl_->io_mu);
  impl_->WriteAll(bytes.data(), bytes.size());
}

void Simulator::SendVehicleMessage(const Bytes& body) {
  uint8_t protocol;
  {
    std::lock_guard<std::mutex> lock(impl_->mu);
    protocol = impl_->channel_protocol;
  }
  Bytes payload = {0x97, protocol, 0x01};
  payload.insert(payload.end(), body.begin(), body.end());
  impl_->WritePayload(payload);
}

void Simulator::SendUnsolicited(uint8_t code) {
  // Content is the adapter's own business; the host only sees the code.
  impl_->WritePayload({code, 0x00, 0x01, 0x5A});
}

void Simulator::HangUp() {
  impl_->abandon_writes = true;
  {
    std::lock_guard<std::mutex> io(impl_->io_mu);
    if (impl_->master >= 0) close(impl_->master);
    if (impl_->slave >= 0) close(impl_->slave);
    impl_->master = impl_->slave = -1;
  }
  impl_->Wake();
}

std::vector<Bytes> Simulator::Received() const {
  std::lock_guard<std::mutex> lock(impl_->mu);
  return impl_->received;
}

void Simulator::ClearReceived() {
  std::lock_guard<std::mutex> lock(impl_->mu);
  impl_->received.clear();
  impl_->consumed.clear();
}

bool Simulator::WaitForRequest(uint8_t code, int timeout_ms, Bytes* payload) {
  std::unique_lock<std::mutex> lock(impl_->mu);
  size_t found = 0;
  auto ready = [&] {
    for (size_t i = 0; i < impl_->received.size(); ++i) {
      if (impl_->consumed[i]) continue;
      const Bytes& p = impl_->received[i];
      if (code == 0 || (!p.empty() && p[0] == code)) {
        found = i;
        return true;
      }
    }
    return false;
  };
  if (!impl_->received_cv.wait_for(lock, std::chrono::milliseconds(timeout_ms), ready))
    return false;
  impl_->consumed[found] = true;
  if (payload) *payload = impl_->received[found];
  return true;
}

int Simulator::HandshakesSeen() const {
  std::lock_guard<std::mutex> lock(impl_->mu);
  return impl_->handshakes;
}

uint8_t Simulator::ChannelProtocol() const {
  std::lock_guard<std::mutex> lock(impl_->mu);
  return impl_->channel_protocol;
}

void Simulator::Impl::Run() {
  uint8_t buffer[4096];
  for (;;) {
    int fd;
    {
      std::lock_guard<std::mutex> io(io_mu);
      if (stopping) return;
      fd = master;
    }
    int timeout_ms = 50;
    std::vector<Bytes> due;
    {
      std::lock_guard<std::mutex> lock(mu);
      const Clock::time_point now = Clock::now();
      for (auto it = deferred.begin(); it != deferred.end();) {
        if (it->due <= now) {
          due.push_back(std::move(it->payload));
          it = deferred.erase(it);
        } else {
          const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(it->due - now);
          timeout_ms = std::min<int>(timeout_ms, static_cast<int>(wait.count()) + 1);
          ++it;
        }
      }
    }
    for (const Bytes& payload : due) WritePayload(payload);
    ScheduleTraffic(Clock::now(), &timeout_ms);

    pollfd fds[2] = {{wake[0], POLLIN, 0}, {fd, POLLIN, 0}};
    const int count = poll(fds, fd >= 0 ? 2 : 1, timeout_ms);
    if (count < 0 && errno != EINTR) return;
    if (fds[0].revents & POLLIN) {
      while (read(wake[0], buffer, sizeof buffer) > 0) {
      }
    }
    if (fd < 0 || !(fds[1].revents & (POLLIN | POLLHUP | POLLERR))) continue;

    ssize_t got;
    {
      std::lock_guard<std::mutex> io(io_mu);
      if (master != fd) continue;  // hung up meanwhile
      got = read(fd, buffer, sizeof buffer);
    }
    if (got <= 0) {
      // Nothing to read (EIO cannot happen while we hold the slave open).
      if (got < 0 && errno != EAGAIN && errno != EINTR) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
      continue;
    }
    std::vector<Bytes> requests;
    {
      std::lock_guard<std::mutex> lock(mu);
      const uint32_t format = static_cast<uint32_t>(config.frame_format);
      for (ssize_t i = 0; i < got; ++i) {
        const uint16_t length = decoder.Feed(buffer[i], format);
        if (length > 0) requests.emplace_back(decoder.Payload(), decoder.Payload() + length);
      }
    }
    for (const Bytes& request : requests) HandleRequest(request);
  }
}

void Simulator::Impl::HandleRequest(const Bytes& request) {
  std::unique_lock<std::mutex> lock(mu);
  received.push_back(request);
  consumed.push_back(false);
  received_cv.notify_all();
  const uint8_t code = request[0];
  if (code == 0x96) {
    ++handshakes;
    ++bring_up_handshakes;
  }
  // Every bring-up starts with the wake-up byte; the handshakes that follow
  // are counted afresh, so each session meets the same adapter.
  if (code == 0x6F) bring_up_handshakes = 0;
  if (config.silent || code == 0x6F) return;

  auto byte = [&](size_t i) -> uint8_t { return i < request.size() ? request[i] : 0; };
  Bytes reply;
  Bytes loopback;
  if (Contains(config.unanswered_codes, code)) return;
  if (Contains(config.error_codes, code)) {
    reply = {0xFF, 0x00, code};
  } else {
    switch (code) {
      case 0x96:
        // A handshake resynchronises the adapter: the channel is closed
        // until the next channel-open.
        channel_open = false;
        if (bring_up_handshakes < config.answer_handshake_from) return;
        reply = {0x96, 0x00, 0x01};
        break;
      case 0x90:
        if (byte(1) == 0x00 && byte(3) == 0x00) {
          if (!config.answer_information) return;
          reply = {0x90, 0x00, 0x01, 0x00, 0x00};
          std::string firmware = config.firmware;
          std::string serial = config.serial;
          firmware.resize(4, ' ');
          serial.resize(10, '\0');
          reply.insert(reply.end(), firmware.begin(), firmware.end());
          reply.insert(reply.end(), serial.begin(), serial.end());
        } else {
          reply = {0x90, byte(1), byte(2), 0x01};
          reply.insert(reply.end(), std::begin(config.status), std::end(config.status));
        }
        break;
      case 0x91: {
        const uint16_t requested = static_cast<uint16_t>(byte(5) << 8 | byte(6));
        // Baud=Auto (RateMode 1, rate 0) lands on the automatic rate, which
        // is refused like any other rate on the list.
        uint16_t rate = byte(3) == 1 && requested == 0 ? config.auto_rate : requested;
        if (Contains(config.refused_rates, rate)) rate = 0;
        channel_protocol = byte(1);
        channel_open = rate != 0;
        channel_opened = Clock::now();
        j1708_checksum = true;
        next_due.clear();
        if (!replay.frames.empty()) {
          replay.next = 0;
          replay.start = channel_opened;
        }
        reply = {0x91, byte(1), 0x01, static_cast<uint8_t>(rate >> 8), static_cast<uint8_t>(rate)};
        break;
      }
      case 0x93:
        reply = {0x93, byte(1), 0x01};
        if (config.loopback && channel_open && request.size() > 3) {
          const Bytes sent(request.begin() + 3, request.end());
          const Bytes body = LoopbackBody(channel_protocol, sent, j1708_checksum);
          if (!body.empty()) {
            loopback = {0x97, channel_protocol, 0x01};
            loopback.insert(loopback.end(), body.begin(), body.end());
          }
        }
        break;
      case 0x95:
        reply = {0x95, byte(1), byte(2)};
        if ((byte(3) << 8 | byte(4)) == kSetJ1708ModeCommand) j1708_checksum = (byte(5) & 1) != 0;
        if ((byte(3) << 8 | byte(4)) == kBatteryCommand) {
          reply.push_back(static_cast<uint8_t>(config.battery_mv >> 8));
          reply.push_back(static_cast<uint8_t>(config.battery_mv));
        }
        break;
      default:
        // A request this adapter does not know.
        reply = {0xFF, 0x00, code};
        break;
    }
  }
  const uint32_t delay = config.reply_delay_ms;
  if (delay > 0) {
    const Clock::time_point due = Clock::now() + std::chrono::milliseconds(delay);
    deferred.push_back({due, reply});
    if (!loopback.empty()) deferred.push_back({due, loopback});
    lock.unlock();
    Wake();
    return;
  }
  lock.unlock();
  WritePayload(reply);
  if (!loopback.empty()) WritePayload(loopback);
}

void Simulator::Impl::ScheduleTraffic(Clock::time_point now, int* timeout_ms) {
  std::vector<Bytes> out;
  {
    std::lock_guard<std::mutex> lock(mu);
    if (!channel_open || config.silent) return;
    const uint8_t protocol = channel_protocol;
    const uint64_t t_ms = static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now - channel_opened).count());
    auto body_payload = [&](const Bytes& body) {
      Bytes payload = {0x97, protocol, 0x01};
      payload.insert(payload.end(), body.begin(), body.end());
      return payload;
    };

    if (traffic == Traffic::kSyntheticVehicle) {
      const std::vector<VehicleSource>& sources = VehicleSources();
      if (next_due.size() != sources.size()) next_due.assign(sources.size(), now);
      for (size_t i = 0; i < sources.size(); ++i) {
        if (next_due[i] <= now) {
          const Bytes body = sources[i].make(protocol, t_ms);
          if (!body.empty()) out.push_back(body_payload(body));
          next_due[i] += std::chrono::milliseconds(sources[i].period_ms);
          if (next_due[i] <= now) next_due[i] = now + std::chrono::milliseconds(sources[i].period_ms);
        }
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next_due[i] - now);
        *timeout_ms = std::min<int>(*timeout_ms, static_cast<int>(wait.count()) + 1);
      }
    } else if (traffic == Traffic::kFlood) {
      // A numbered EEC1 (or engine MID) per message, so a reader can tell
      // exactly which ones were lost.
      const size_t before = out.size();
      for (int i = 0; i < 32; ++i) {
        const uint32_t n = flood_sequence++;
        const uint8_t s[4] = {static_cast<uint8_t>(n >> 24), static_cast<uint8_t>(n >> 16),
                              static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)};
        Bytes body;
        if (protocol == kJ1708) {
          body = {128, 190, s[0], s[1], s[2], s[3]};
        } else {
          CanFrame frame{0x0CF00400, true, {s[0], s[1], s[2], s[3], 0xFF, 0xFF, 0xFF, 0xFF}};
          body = BodyForChannel(protocol, frame);
        }
        if (body.empty()) break;
        out.push_back(body_payload(body));
      }
      // Straight back for more only when this link carries the flood;
      // otherwise the loop would spin without sending anything.
      if (out.size() > before) *timeout_ms = 0;
    }

    if (!replay.frames.empty() && replay.next < replay.frames.size()) {
      const int64_t first = replay.frames.front().first;
      const int64_t span = replay.frames.back().first - first + 1000;  // 1 ms gap before a repeat
      while (replay.next < replay.frames.size()) {
        const auto& entry = replay.frames[replay.next];
        const Clock::time_point due = replay.start + std::chrono::microseconds(entry.first - first);
        if (due > now) {
          const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(due - now);
          *timeout_ms = std::min<int>(*timeout_ms, static_cast<int>(wait.count()) + 1);
          break;
        }
        const Bytes body = BodyForChannel(protocol, entry.second);
        if (!body.empty()) out.push_back(body_payload(body));
        if (++replay.next == replay.frames.size() && replay.loop) {
          replay.next = 0;
          replay.start += std::chrono::microseconds(span);
        }
      }
    }
  }
  for (const Bytes& payload : out) WritePayload(payload);
}

void Simulator::Impl::WritePayload(const Bytes& payload) {
  Config c;
  {
    std::lock_guard<std::mutex> lock(mu);
    c = config;
  }
  Bytes frame(payload.size() * 2 + 10);
  const uint32_t length = qv::link::EncodeAdapterFrame(
      frame.data(), static_cast<uint32_t>(frame.size()), payload.data(),
      static_cast<int32_t>(payload.size()), static_cast<uint8_t>(c.frame_format));
  if (length == 0) return;
  frame.resize(length);
  if (c.corrupt_checksum) CorruptFrame(&frame, c.frame_format);
  if (c.garbage_between_frames) {
    const Bytes junk = Garbage(c.frame_format);
    frame.insert(frame.begin(), junk.begin(), junk.end());
  }
  std::lock_guard<std::mutex> io(io_mu);
  WriteAll(frame.data(), frame.size(), c.split_bytes);
}

// Caller holds io_mu. The bytes go out whole or not at all: when the host
// leaves no room for the first one within kWriteRoomMs they are dropped;
// once begun they are finished, as a cut frame would spoil the next one
// too. Only Stop and HangUp cut them short, and then the line goes away.
bool Simulator::Impl::WriteAll(const uint8_t* data, size_t size, bool one_byte_each) {
  const Clock::time_point give_up = Clock::now() + std::chrono::milliseconds(kWriteRoomMs);
  bool begun = false;
  while (size > 0) {
    if (master < 0 || abandon_writes) return false;
    const ssize_t done = write(master, data, one_byte_each ? 1 : size);
    if (done > 0) {
      begun = true;
      data += done;
      size -= static_cast<size_t>(done);
      if (one_byte_each && size > 0) std::this_thread::sleep_for(kSplitBytePause);
      continue;
    }
    if (done < 0 && errno != EAGAIN && errno != EINTR) return false;
    if (!begun && Clock::now() >= give_up) return false;
    pollfd p = {master, POLLOUT, 0};
    poll(&p, 1, 10);
  }
  return true;
}

}  // namespace qvsim
