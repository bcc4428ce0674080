// A virtual QV adapter on a pseudo-terminal: answers the library's requests
// in the variant's FrameFormat, generates vehicle traffic and misbehaves on
// demand. Used in-process by the tests and by the qvsim command.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qvsim {

using Bytes = std::vector<uint8_t>;

struct Config {
  int frame_format = 1;                // 0, 1 or 2 (DeviceTag #QV--VCI+#, #QV--VCI#, #QV--VCI++#)
  std::string firmware = "4.25";       // 4 characters, information reply bytes 5-8
  std::string serial = "QV00012345";   // 10 bytes, information reply bytes 9-18
  uint16_t auto_rate = 500;            // rate reported for RateMode 1 with rate 0
  std::vector<uint16_t> refused_rates; // channel-open rates (also automatic) answered with rate 0
  uint16_t battery_mv = 12590;         // Get_BatteryVoltage reply bytes 3-4
  uint8_t status[5] = {0x01, 0x00, 0x02, 0x05, 0x06};  // hardware status reply bytes 4-8
  bool loopback = false;               // echo 0x93 bodies back as 0x97 traffic

  // Misbehaviour.
  bool silent = false;                 // answer nothing at all
  int answer_handshake_from = 1;       // ignore handshakes before the k-th since the 0x6F wake-up
  bool answer_information = true;      // answer the 0x90 0x00 0x01 0x00 information request
  std::vector<uint8_t> error_codes;    // answer requests with these codes by FF 00 code
  std::vector<uint8_t> unanswered_codes;  // never answer requests with these codes
  uint32_t reply_delay_ms = 0;         // answer late
  bool corrupt_checksum = false;       // bad checksum (format 0/1) or end byte (format 2)
  bool garbage_between_frames = false; // junk bytes before every frame
  bool split_bytes = false;            // write frames one byte per write
};

// What PrepareRoot made of a QVRP32_ROOT, for the user to see.
struct PreparedRoot {
  std::string port_link;    // DIR/dosdevices/comN
  std::string port_target;  // the pseudo-terminal it points to
  std::string registry;     // DIR/registry.reg
  std::string device_tag;   // the variant's marker in the arbiter entry
  struct IniFile {
    std::string path;
    bool written;  // false: it was there already and is kept as it is
  };
  std::vector<IniFile> ini_files;
};

// The DeviceTag in the adapter's device path that selects FrameFormat 0,
// 1 or 2: "#QV--VCI+#", "#QV--VCI#", "#QV--VCI++#".
const char* DeviceTag(int frame_format);

// The synthetic vehicle and other traffic sources.
enum class Traffic { kNone, kSyntheticVehicle, kFlood };

class Simulator {
 public:
  explicit Simulator(Config config = {});
  ~Simulator();  // Stop()
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;

  // Opens the pseudo-terminal and starts the adapter thread.
  bool Start();
  void Stop();
  std::string SlavePath() const;

  // Prepares a QVRP32_ROOT: dosdevices/com<N> linked to the slave,
  // registry.reg with the SERIALCOMM value and the arbiter entry whose
  // DeviceTag selects the variant, and both INI files when absent. The
  // port link comes last, so whoever waits for it finds the rest in place.
  bool PrepareRoot(const std::string& root_dir, int com_number = 7,
                   PreparedRoot* prepared = nullptr);

  // Changes the configuration while running (thread-safe).
  void Configure(const Config& config);
  Config CurrentConfig() const;

  // Traffic, in the MessageBody layout of the open channel's protocol.
  void SetTraffic(Traffic traffic);
  bool ReplayCandump(const std::string& path, bool loop);  // candump -L format
  // Sends one payload / raw bytes / a 0x97 message with this MessageBody.
  void SendPayload(const Bytes& payload);
  void SendRaw(const Bytes& bytes);
  void SendVehicleMessage(const Bytes& body);
  void SendUnsolicited(uint8_t code);  // a 0x10-0x1F or 0x30-0x3F payload
  void HangUp();                       // the adapter unplugged: close the master side

  // Every payload received from the library, in order.
  std::vector<Bytes> Received() const;
  void ClearReceived();
  // Waits for the next not yet consumed received payload whose byte 0 is
  // `code` (0 = any); true and *payload set when one came in time.
  bool WaitForRequest(uint8_t code, int timeout_ms, Bytes* payload = nullptr);
  int HandshakesSeen() const;  // since Start
  uint8_t ChannelProtocol() const;  // ProtocolId of the last channel-open, 0 before

 private:
  struct Impl;
  Impl* impl_;
};

}  // namespace qvsim
