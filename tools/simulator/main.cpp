// qvsim: a simulated QV adapter on a pseudo-terminal, for running the
// library and applications against it without hardware.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "qvsim/console.h"
#include "qvsim/simulator.h"

namespace {

volatile sig_atomic_t g_stop = 0;

void OnSignal(int) { g_stop = 1; }

void Usage(std::FILE* out) {
  std::fputs(
      "usage: qvsim [options]\n"
      "Plays a QV adapter on a pseudo-terminal and prepares a QVRP32_ROOT for it.\n"
      "\n"
      "  --format N          framing variant 0, 1 (default) or 2\n"
      "  --root DIR          prepare DIR as QVRP32_ROOT (port link, registry.reg, INI files)\n"
      "  --com N             COM port number (default 7)\n"
      "  --firmware TEXT     firmware text, up to 4 characters (default 4.25)\n"
      "  --serial TEXT       serial number, up to 10 characters (default QV00012345)\n"
      "  --traffic KIND      none (default), vehicle or flood\n"
      "  --replay FILE       replay a candump -L log, looping\n"
      "  --loopback          send transmitted messages back as received traffic\n"
      "  --battery MV        battery voltage in millivolts (default 12590)\n"
      "  --auto-rate K       rate reported for Baud=Auto (default 500)\n"
      "  --refuse-rate K     answer a channel-open at rate K, or at Auto when\n"
      "                      --auto-rate is K, with 0 (repeatable)\n"
      "misbehaviour:\n"
      "  --silent            answer nothing\n"
      "  --handshake-from K  ignore handshakes before the K-th of each bring-up\n"
      "  --no-info           never answer the information request\n"
      "  --error-code 0xNN   answer requests with this code by an error reply (repeatable)\n"
      "  --delay MS          answer MS milliseconds late\n"
      "  --corrupt           send bad checksums / end bytes\n"
      "  --garbage           send junk bytes between frames\n"
      "  --split-bytes       write frames one byte at a time\n"
      "  --no-answer 0xNN    never answer requests with this code (repeatable)\n"
      "  --help              this text\n"
      "\n",
      out);
  std::fputs(qvsim::kConsoleHelp, out);
}

bool ParseInt(const char* text, long low, long high, long* value) {
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(text, &end, 0);
  if (errno != 0 || end == text || *end != '\0' || v < low || v > high) return false;
  *value = v;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  qvsim::Config config;
  std::string root, replay;
  long com = 7;
  qvsim::Traffic traffic = qvsim::Traffic::kNone;

  for (int i = 1; i < argc; ++i) {
    const std::string opt = argv[i];
    auto value = [&](const char** out) {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "qvsim: %s needs a value\n", opt.c_str());
        return false;
      }
      *out = argv[++i];
      return true;
    };
    auto number = [&](long low, long high, long* out) {
      const char* text = nullptr;
      if (!value(&text)) return false;
      if (!ParseInt(text, low, high, out)) {
        std::fprintf(stderr, "qvsim: bad value for %s: %s\n", opt.c_str(), text);
        return false;
      }
      return true;
    };
    const char* text = nullptr;
    long n = 0;
    if (opt == "--help" || opt == "-h") {
      Usage(stdout);
      return 0;
    } else if (opt == "--format") {
      if (!number(0, 2, &n)) return 2;
      config.frame_format = static_cast<int>(n);
    } else if (opt == "--root") {
      if (!value(&text)) return 2;
      root = text;
    } else if (opt == "--com") {
      if (!number(1, 255, &com)) return 2;
    } else if (opt == "--firmware") {
      // The information answer has room for exactly this many characters;
      // a longer text would be cut without a word.
      if (!value(&text)) return 2;
      if (std::strlen(text) > 4) {
        std::fprintf(stderr, "qvsim: --firmware takes at most 4 characters: %s\n", text);
        return 2;
      }
      config.firmware = text;
    } else if (opt == "--serial") {
      if (!value(&text)) return 2;
      if (std::strlen(text) > 10) {
        std::fprintf(stderr, "qvsim: --serial takes at most 10 characters: %s\n", text);
        return 2;
      }
      config.serial = text;
    } else if (opt == "--traffic") {
      if (!value(&text)) return 2;
      const std::string kind = text;
      if (kind == "none") traffic = qvsim::Traffic::kNone;
      else if (kind == "vehicle") traffic = qvsim::Traffic::kSyntheticVehicle;
      else if (kind == "flood") traffic = qvsim::Traffic::kFlood;
      else {
        std::fprintf(stderr, "qvsim: unknown traffic kind: %s\n", text);
        return 2;
      }
    } else if (opt == "--replay") {
      if (!value(&text)) return 2;
      replay = text;
    } else if (opt == "--loopback") {
      config.loopback = true;
    } else if (opt == "--battery") {
      if (!number(0, 65535, &n)) return 2;
      config.battery_mv = static_cast<uint16_t>(n);
    } else if (opt == "--auto-rate") {
      if (!number(0, 65535, &n)) return 2;
      config.auto_rate = static_cast<uint16_t>(n);
    } else if (opt == "--refuse-rate") {
      if (!number(0, 65535, &n)) return 2;
      config.refused_rates.push_back(static_cast<uint16_t>(n));
    } else if (opt == "--silent") {
      config.silent = true;
    } else if (opt == "--handshake-from") {
      if (!number(1, 1000000, &n)) return 2;
      config.answer_handshake_from = static_cast<int>(n);
    } else if (opt == "--no-info") {
      config.answer_information = false;
    } else if (opt == "--error-code") {
      if (!number(0, 255, &n)) return 2;
      config.error_codes.push_back(static_cast<uint8_t>(n));
    } else if (opt == "--delay") {
      if (!number(0, 600000, &n)) return 2;
      config.reply_delay_ms = static_cast<uint32_t>(n);
    } else if (opt == "--corrupt") {
      config.corrupt_checksum = true;
    } else if (opt == "--garbage") {
      config.garbage_between_frames = true;
    } else if (opt == "--no-answer") {
      if (!number(0, 255, &n)) return 2;
      config.unanswered_codes.push_back(static_cast<uint8_t>(n));
    } else if (opt == "--split-bytes") {
      config.split_bytes = true;
    } else {
      std::fprintf(stderr, "qvsim: unknown option %s (see --help)\n", opt.c_str());
      return 2;
    }
  }

  qvsim::Simulator sim(config);
  if (!sim.Start()) {
    std::perror("qvsim: cannot open a pseudo-terminal");
    return 1;
  }
  if (!replay.empty() && !sim.ReplayCandump(replay, true)) {
    std::fprintf(stderr, "qvsim: no CAN frames in %s\n", replay.c_str());
    return 1;
  }
  sim.SetTraffic(traffic);
  std::printf("slave:    %s\n", sim.SlavePath().c_str());
  if (!root.empty()) {
    qvsim::PreparedRoot prepared;
    if (!sim.PrepareRoot(root, static_cast<int>(com), &prepared)) {
      std::fprintf(stderr, "qvsim: cannot prepare %s\n", root.c_str());
      return 1;
    }
    std::printf("root:     %s (QVRP32_ROOT)\n", root.c_str());
    std::printf("port:     %s -> %s\n", prepared.port_link.c_str(), prepared.port_target.c_str());
    std::printf("registry: %s (COM%ld, DeviceTag %s)\n", prepared.registry.c_str(), com,
                prepared.device_tag.c_str());
    for (const auto& ini : prepared.ini_files) {
      std::printf("ini:      %s %s\n", ini.path.c_str(),
                  ini.written ? "written" : "kept (it was there already)");
    }
  } else {
    std::printf("port:     COM%ld (no --root: nothing prepared)\n", com);
  }
  std::printf("variant:  FrameFormat %d, %s, firmware %s, serial %s\n", config.frame_format,
              qvsim::DeviceTag(config.frame_format), config.firmware.c_str(), config.serial.c_str());
  std::printf("running until interrupted; type help for commands\n");
  std::fflush(stdout);

  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_handler = OnSignal;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  // Signals are let in only inside ppoll, so none slips in between the test
  // and the wait.
  sigset_t blocked, previous;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGINT);
  sigaddset(&blocked, SIGTERM);
  sigprocmask(SIG_BLOCK, &blocked, &previous);
  struct pollfd input = {STDIN_FILENO, POLLIN, 0};
  // A background job must not read its terminal: that would stop it.
  if (isatty(STDIN_FILENO) && tcgetpgrp(STDIN_FILENO) != getpgrp()) input.fd = -1;
  std::string pending;
  while (!g_stop) {
    // Without standard input (closed, /dev/null) only a signal ends the wait.
    if (ppoll(&input, input.fd >= 0 ? 1 : 0, nullptr, &previous) <= 0) continue;
    char chunk[512];
    const ssize_t got = read(STDIN_FILENO, chunk, sizeof chunk);
    if (got <= 0) {
      input.fd = -1;
      continue;
    }
    pending.append(chunk, static_cast<size_t>(got));
    size_t end;
    while ((end = pending.find('\n')) != std::string::npos) {
      const std::string reply = qvsim::RunConsoleCommand(sim, pending.substr(0, end));
      pending.erase(0, end + 1);
      if (!reply.empty()) std::printf("%s\n", reply.c_str());
      std::fflush(stdout);
    }
  }
  sim.Stop();
  return 0;
}
