// Process-wide library state: ApiLock, the client table, the readiness marks,
// the adapter identity and the version texts. All of it is static and fixed
// in size; every field is zero at load.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace qv {

constexpr uint32_t kReadyMark = 0x55AACC33;

enum ProtocolId : uint8_t {
  kProtocolNone = 0,
  kProtocolCan = 1,
  kProtocolJ1939 = 2,
  kProtocolIso15765 = 3,
  kProtocolJ2284 = 4,
  kProtocolJ1708 = 5,
};

enum FilterState : uint8_t {
  kFilterDiscardAll = 0,
  kFilterSet = 1,
  kFilterPassAll = 2,
};

constexpr int kJ1939FilterEntries = 12;
constexpr int kRxQueueRecords = 512;
constexpr int kRxRecordBodyBytes = 4128;
constexpr int kEchoBytes = 4127;
constexpr uint16_t kDefaultMaxErrorMsgSize = 79;
constexpr uint32_t kDefaultBlockTimeout = 40000;

// One Set_Message_Filtering_For_J1939 entry: flags, PGN (LSB first),
// priority, source, destination; the rest is padding. Flags 0 = free.
struct J1939FilterEntry {
  uint8_t flags;
  uint8_t pgn[3];
  uint8_t priority;
  uint8_t source;
  uint8_t destination;
  uint8_t unused[5];
};

struct PendingEcho {
  uint16_t length;  // 0 = none; bytes from the marker to the last echo byte
  uint8_t protocol_id;
  uint8_t client_id;
  uint8_t marker;
  uint8_t bytes[kEchoBytes];
};

struct RxRecord {
  uint16_t length;  // MessageBody bytes, 0 = empty
  uint8_t body[kRxRecordBodyBytes];
};

struct RxMessageQueue {
  RxRecord records[kRxQueueRecords];
  uint32_t read_index;
  uint32_t write_index;
};

// Trivially copyable on purpose: slots are reset with memset.
struct ClientSlot {
  uint16_t client_id;  // 1 or 2 while in use, 0 while free
  uint8_t echo_flag;
  uint8_t protocol_id;
  uint8_t message_receive;
  uint8_t filter_state;
  uint8_t j1708_checksum_mode;
  uint32_t bit_rate;  // kbit/s (CAN family) or bit/s (J1708); 0 = auto
  uint8_t rate_mode;  // 2 default rate, 1 "Baud=" given
  uint32_t block_timeout;
  uint16_t max_error_msg_size;
  uint16_t battery_voltage_mv;
  uint8_t j1939_claimed_address;
  uint8_t address_claim_flag;
  J1939FilterEntry j1939_filters[kJ1939FilterEntries];
  PendingEcho echo;
  // The RxMessageQueues of slots 1 and 2 live with the mailbox
  // (messaging/client_mailbox.h): slot 0 is never handed out and has none.
};

struct AdapterInfo {
  char firmware_version[10];
  uint8_t serial_number[10];
};

struct LibraryState {
  ClientSlot slots[3];  // index = client id; 0 is never handed out
  uint32_t session_ready;
  uint32_t client_ready[255];  // indexed by client id AND 127
  AdapterInfo adapter_info;
  char api_version[10];
  char dll_version[10];
};

extern LibraryState g_state;
extern platform::RecursiveLock g_api_lock;

constexpr char kDllVersionString[] = "1.2.3";
constexpr char kApiVersionString[] = "3.0.0.0";

// Session-ready test: PortOpenFlag is 1 and SessionReady holds ReadyMark.
bool SessionIsReady();
// Client-ready test: ClientReady[id AND 127] holds ReadyMark.
bool ClientIsReady(uint16_t client_id);
// ReadyMark when PortOpenFlag is 1, else 0 (every write of SessionReady).
void MarkSessionReadyIfPortOpen();

// Slot index for a client id given by the caller: 1 or 2 when the id is
// non-zero and held by slot 1 or slot 2 (slot 1 tested first), else 0.
int FindClientSlot(int16_t client_id);

void ResetClientTable();
void ReleaseClientSlot(int index);
// Zeroes the whole slot, then sets block timeout 40000, J1708 checksum
// mode 1 and max error message size 79 (the state of a free slot).
void ApplySlotDefaults(ClientSlot& slot);

// What DllMain does at process attach and detach (and load and unload of
// the shared object on Linux).
void ProcessAttach();
void ProcessDetach();

}  // namespace qv
