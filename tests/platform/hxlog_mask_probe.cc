// Exits with 0 when the logger mask that the library took from HXLOG_MASK at
// load time equals the hexadecimal argument, with 1 otherwise.
#include <cstdio>
#include <cstdlib>

#include "platform/hxlog/hxlog.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  unsigned long expected = std::strtoul(argv[1], nullptr, 16);
  unsigned long mask = g_LumLogParams.logMask.load();
  std::printf("mask %08lx, expected %08lx\n", mask, expected);
  return mask == expected ? 0 : 1;
}
