// Raw BGRA frames in, raw BGRA frames out: the pipe between two ffmpeg processes.
#ifndef VANTYX_TOOL_RAW_STREAM_H
#define VANTYX_TOOL_RAW_STREAM_H

#include <cstdint>
#include <cstdio>
#include <string>

#include "runner.h"

namespace VantyxTool {

struct RawStreamResult {
  uint64_t frames = 0;  // frames processed and written
  double seconds = 0.0;
};

// Reads frames of width x height x 4 bytes from `in` until its end, renders each with the one
// effect of `runner` (already sized) and writes the rectangle-sized result to `out`. False with
// a message on a short final frame, a read or write failure or an effect failure; every frame
// before it has been written. `progress`: a live line on standard error while running.
bool RunRawStream(EffectRunner* runner, const FrameSettings& settings, const uint8_t* mask,
                  int32_t width, int32_t height, FILE* in, FILE* out, bool progress,
                  RawStreamResult* result, std::string* error);

}  // namespace VantyxTool

#endif  // VANTYX_TOOL_RAW_STREAM_H
