// Opening, closing and writing the adapter's port; the port itself and the
// reader thread are the platform's.
#include "link/serial_link.h"

#include "link/chunked_write.h"
#include "link/frame_codec.h"
#include "link/rx_sink.h"

namespace qv::link {

uint32_t g_frame_format = 1;

namespace {
// Only one send runs at a time (callers hold ApiLock).
uint8_t g_frame_buffer[kFrameBufferSize];

bool WriteChunkToPort(const uint8_t* data, uint32_t length) {
  if (platform::WriteSerialChunk(data, length) == platform::ChunkResult::kFatal) {
    SetPortOpenFlag(0);  // the port is gone: every later send fails at once
    LinkWakeSignal().Raise();  // and a blocked read learns it now
    return false;
  }
  return true;
}
}  // namespace

int WriteFrameInChunks(const uint8_t* frame, uint32_t length, ChunkWriter write_chunk) {
  for (uint32_t at = 0; at < length; at += kMaxChunk) {
    if (!PortIsOpen()) return 0;
    const uint32_t chunk = length - at < kMaxChunk ? length - at : kMaxChunk;
    if (!write_chunk(frame + at, chunk)) return 0;
  }
  return 1;
}

int OpenAdapterPort(const char* port_name) {
  // Not only when PortOpenFlag is 1: a link that dropped on its own (a fatal
  // write, a hang-up) still holds its reader thread, which must be gone
  // before the ring is prepared for the new port.
  CloseAdapterPort();
  PrepareRingForOpen();
  return platform::OpenSerialPort(port_name) ? 1 : 0;
}

void CloseAdapterPort() {
  platform::CloseSerialPort();
  LinkWakeSignal().Raise();
}

int SendAdapterFrame(const uint8_t* payload, int32_t length) {
  if (!PortIsOpen()) return 0;
  const uint32_t frame_length = EncodeAdapterFrame(
      g_frame_buffer, sizeof g_frame_buffer, payload, length, static_cast<uint8_t>(g_frame_format));
  if (frame_length == 0) return 0;
  return WriteFrameInChunks(g_frame_buffer, frame_length, WriteChunkToPort);
}

}  // namespace qv::link
