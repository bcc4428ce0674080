// The chunking of a frame onto the port, kept apart so it can be tested
// without a port.
#pragma once

#include <cstdint>

namespace qv::link {

constexpr uint32_t kMaxChunk = 200;

// Returns false when the port is gone.
using ChunkWriter = bool (*)(const uint8_t* data, uint32_t length);

// Writes the frame in chunks of at most 200 bytes, re-testing PortOpenFlag
// before each. 1 when every chunk was accepted, else 0.
int WriteFrameInChunks(const uint8_t* frame, uint32_t length, ChunkWriter write_chunk);

}  // namespace qv::link
