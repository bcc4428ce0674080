#include "bench_session.h"

#include <dlfcn.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "link/frame_codec.h"
#include "qvsim/traffic.h"

namespace qvbench {
namespace {

constexpr int kComNumber = 7;
// EEC1 from the engine, as a 29-bit identifier.
constexpr uint32_t kFrameId = 0x0CF00400;
// J1939 body: header, PGN (3), how/priority, source, destination, then data.
constexpr size_t kBodyHeader = 7;
constexpr size_t kPayloadHeader = 3;  // 0x97, protocol, channel
constexpr size_t kFrameRoom = 128;    // one frame of the benchmark's message

template <typename F>
bool Resolve(void* handle, const char* name, F* out) {
  *out = reinterpret_cast<F>(dlsym(handle, name));
  return *out != nullptr;
}

}  // namespace

BenchSession::BenchSession(int frame_format, int log_level)
    : frame_format_(frame_format), log_level_(log_level) {}

BenchSession::~BenchSession() {
  CloseLibrary();
  if (sim_) sim_->Stop();
  if (!root_.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
}

bool BenchSession::Start(std::string* why) {
  char dir[] = "/tmp/qvbench-XXXXXX";
  if (mkdtemp(dir) == nullptr) {
    *why = "cannot make a root folder";
    return false;
  }
  root_ = dir;
  setenv("QVRP32_ROOT", dir, 1);
  // The simulator writes the configuration only when absent: this one sets
  // the log level of the run.
  const std::filesystem::path config_dir = root_ + "/ProgramData/QV/Corvane";
  std::filesystem::create_directories(config_dir);
  std::ofstream(config_dir / "COMConfig.ini")
      << "[COMConfig]\nSN=QV00012345\nDebugLevel=" << log_level_
      << "\nDebugMode=0\nOBDPin=6E\nRes120=0\n";

  qvsim::Config config;
  config.frame_format = frame_format_;
  sim_.reset(new qvsim::Simulator(config));
  if (!sim_->Start()) {
    *why = "simulator: no pseudo-terminal";
    return false;
  }
  if (!sim_->PrepareRoot(root_, kComNumber)) {
    *why = "simulator: cannot prepare " + root_;
    return false;
  }

  qvsim::CanFrame frame{kFrameId, true, {0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}};
  const qvsim::Bytes body = qvsim::J1939Body(frame);
  payload_ = {0x97, qvsim::kJ1939, 0x01};
  payload_.insert(payload_.end(), body.begin(), body.end());
  number_at_ = kPayloadHeader + kBodyHeader;
  batch_.reserve(kMaxBatch * kFrameRoom);
  return true;
}

bool BenchSession::OpenLibrary(const std::string& path, std::string* why) {
  lib_.handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (lib_.handle == nullptr) {
    const char* error = dlerror();
    *why = "cannot load " + path + ": " + (error ? error : "?");
    return false;
  }
  if (!Resolve(lib_.handle, "RP1210_ClientConnect", &lib_.ClientConnect) ||
      !Resolve(lib_.handle, "RP1210_ClientDisconnect", &lib_.ClientDisconnect) ||
      !Resolve(lib_.handle, "RP1210_SendMessage", &lib_.SendMessage) ||
      !Resolve(lib_.handle, "RP1210_ReadMessage", &lib_.ReadMessage) ||
      !Resolve(lib_.handle, "RP1210_SendCommand", &lib_.SendCommand)) {
    *why = "missing exports in " + path;
    return false;
  }
  const short client = lib_.ClientConnect(nullptr, 1, "J1939", 0, 0, 0);
  if (client != 1) {
    *why = "connect returned " + std::to_string(client);
    return false;
  }
  const short pass = lib_.SendCommand(RP1210_Set_All_Filters_States_to_Pass, 1, nullptr, 0);
  if (pass != 0) {
    *why = "Set_All_Filters_States_to_Pass returned " + std::to_string(pass);
    return false;
  }
  return true;
}

void BenchSession::CloseLibrary() {
  if (lib_.handle == nullptr) return;
  if (lib_.ClientDisconnect != nullptr) lib_.ClientDisconnect(1);
  dlclose(lib_.handle);
  lib_ = Library{};
}

void BenchSession::WriteMessages(uint32_t first, uint32_t count) {
  if (count > kMaxBatch) count = kMaxBatch;
  batch_.clear();  // keeps its capacity: no allocation below
  uint8_t frame[kFrameRoom];
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t number = first + i;
    payload_[number_at_] = static_cast<uint8_t>(number >> 24);
    payload_[number_at_ + 1] = static_cast<uint8_t>(number >> 16);
    payload_[number_at_ + 2] = static_cast<uint8_t>(number >> 8);
    payload_[number_at_ + 3] = static_cast<uint8_t>(number);
    const uint32_t n =
        qv::link::EncodeAdapterFrame(frame, sizeof frame, payload_.data(),
                                     static_cast<int32_t>(payload_.size()),
                                     static_cast<uint8_t>(frame_format_));
    batch_.insert(batch_.end(), frame, frame + n);
  }
  sim_->SendRaw(batch_);
}

bool NumberFromDelivered(const uint8_t* message, int length, uint32_t* number) {
  // Stamp (4), PGN (3), how, source, destination: data from byte 10.
  constexpr int kData = 10;
  if (length < kData + 4) return false;
  const uint8_t* d = message + kData;
  *number = static_cast<uint32_t>(d[0]) << 24 | static_cast<uint32_t>(d[1]) << 16 |
            static_cast<uint32_t>(d[2]) << 8 | d[3];
  return true;
}

bool NumberFromPayload(const uint8_t* payload, int length, uint32_t* number) {
  const int at = static_cast<int>(kPayloadHeader + kBodyHeader);
  if (length < at + 4 || payload[0] != 0x97) return false;
  const uint8_t* d = payload + at;
  *number = static_cast<uint32_t>(d[0]) << 24 | static_cast<uint32_t>(d[1]) << 16 |
            static_cast<uint32_t>(d[2]) << 8 | d[3];
  return true;
}

}  // namespace qvbench
