// OpenAdapterSession: from no adapter to an identified, resynchronised one.
#include "api/session.h"

#include <cstring>

#include "api/library_state.h"
#include "link/adapter_commands.h"
#include "link/payload_queue.h"
#include "link/port_discovery.h"
#include "link/serial_link.h"
#include "link/waiters.h"

namespace qv {
namespace {

constexpr uint16_t kErrNoerr = 0;
constexpr uint16_t kErrNoCommPort = 14;
constexpr uint16_t kErrVdaInvalid = 16;
constexpr uint16_t kErrVdaDisconnected = 18;

constexpr int kHandshakeAttempts = 3;
constexpr uint32_t kHandshakeWaitMs = 1200;
constexpr uint32_t kInformationWaitMs = 1000;
constexpr uint32_t kReplyCapacity = 4132;

// Session bring-up runs under ApiLock only, so static buffers are safe and
// keep the stack small.
char g_selected_port[10];
uint8_t g_session_reply[kReplyCapacity];

uint16_t GiveUp() {
  link::CloseAdapterPort();
  link::ResetReceiveState();
  return kErrVdaDisconnected;
}

bool Handshake() {
  static const uint8_t kHandshake[] = {link::kCmdHandshake, 0x00, 0x01};
  for (int attempt = 0; attempt < kHandshakeAttempts; ++attempt) {
    if (link::SendAdapterFrame(kHandshake, sizeof kHandshake) != 1) continue;
    if (link::WaitForReply(g_session_reply, kReplyCapacity, kHandshakeWaitMs,
                           link::kCmdHandshake) > 0) {
      return true;
    }
  }
  return false;
}

void StoreAdapterInfo(const uint8_t* r) {
  AdapterInfo& info = g_state.adapter_info;
  std::memset(info.firmware_version, 0, sizeof info.firmware_version);
  std::memcpy(info.firmware_version, r + 5, 4);
  // Firmware before x.2 reports itself as x.2 (for major versions up to 4);
  // the bytes are compared as signed chars, so bytes above 0x7F count as low.
  const int8_t major = static_cast<int8_t>(r[5]);
  const int8_t minor = static_cast<int8_t>(r[7]);
  if (major <= '4' && minor < '2') info.firmware_version[2] = '2';
  std::memset(info.serial_number, 0, sizeof info.serial_number);
  std::memcpy(info.serial_number, r + 9, 10);
}

}  // namespace

uint16_t OpenAdapterSession() {
  g_state.session_ready = 0;

  link::DiscoverAdapterPorts();
  std::memset(g_selected_port, 0, sizeof g_selected_port);
  const link::AdapterPortTable& ports = link::g_adapter_ports;
  if (ports.count == 0) return kErrNoCommPort;
  const link::AdapterPortRecord* chosen = nullptr;
  for (int i = 0; i < ports.count; ++i) {
    if (ports.records[i].adapter_flag != 0 && ports.records[i].usb_serial_flag == 1) {
      chosen = &ports.records[i];
      break;
    }
  }
  if (chosen == nullptr) return kErrNoCommPort;

  std::memcpy(g_selected_port, chosen->port_name, sizeof chosen->port_name);
  if (link::SelectAdapterPort(g_selected_port) != 1) return kErrVdaInvalid;

  // Whatever an earlier session left queued must not be taken for an answer.
  link::g_reply_queue.DiscardPending();
  link::g_message_queue.DiscardPending();

  static const uint8_t kWakeUp[] = {link::kCmdWakeUp};
  link::SendAdapterFrame(kWakeUp, sizeof kWakeUp);  // best effort, no answer

  if (!Handshake()) return GiveUp();
  MarkSessionReadyIfPortOpen();

  static const uint8_t kInformation[] = {link::kCmdInformation, 0x00, 0x01, 0x00};
  std::memset(g_session_reply, 0, sizeof g_session_reply);
  if (link::SendAdapterFrame(kInformation, sizeof kInformation) != 1) return GiveUp();
  if (link::WaitForReply(g_session_reply, kReplyCapacity, kInformationWaitMs,
                         link::kCmdInformation) <= 0) {
    return GiveUp();
  }
  StoreAdapterInfo(g_session_reply);

  MarkSessionReadyIfPortOpen();
  return kErrNoerr;
}

}  // namespace qv
