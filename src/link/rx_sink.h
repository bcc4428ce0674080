// What the platform's serial reader thread calls into the link. The portable
// side of the receive path: the RxByteRing, decoding and filing.
#pragma once

#include <atomic>
#include <cstdint>

namespace qv::link {

// 1 while the port is open and the reader thread is to run. Every write is
// an atomic exchange.
extern std::atomic<int32_t> g_port_open_flag;
inline void SetPortOpenFlag(int32_t value) { g_port_open_flag.exchange(value); }
inline bool PortIsOpen() { return g_port_open_flag.load() == 1; }

// Once per reader loop pass, before the wait: decode and file whatever
// complete frames the RxByteRing holds (DispatchAdapterFrames).
void ReaderPass();
// Stores bytes just read into the RxByteRing (dropped while the ring is not
// enabled; a burst larger than the free space empties the ring first) and
// takes the last-receive time.
void StoreReceivedBytes(const uint8_t* data, uint32_t count);
// EV_TXEMPTY: sets the transmit-empty flag.
void NoteTransmitEmpty();
// Empties the ring for a fresh port: indexes 0, enabled, last-receive time
// taken, transmit-empty flag 1 (step 3 of the open sequence).
void PrepareRingForOpen();

}  // namespace qv::link
