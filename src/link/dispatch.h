// Decoding and filing of received frames.
#pragma once

#include <cstdint>

#include "link/frame_codec.h"

namespace qv::link {

// The one decoder of the library's receive path (its state survives reads).
extern FrameDecoder g_frame_decoder;

// Consumes the RxByteRing, files every complete valid payload in the
// ReplyQueue or the MessageQueue, and raises the link's wake-up signal.
void DispatchAdapterFrames();

}  // namespace qv::link
