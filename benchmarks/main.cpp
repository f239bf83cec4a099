// SPDX-License-Identifier: Apache-2.0
// Runs the measurements in a directory on the volume to measure, and writes the table:
//   larkspur_bench AREA REPORT [--quick] [options of Google Benchmark]
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "comparison.h"
#include "fixtures.h"
#include "measurements.h"
#include "report.h"

int main(int argc, char** argv) {
  using namespace larkspur::bench;
  benchmark::Initialize(&argc, argv);
  const bool isQuick = argc == 4 && argv[3] == std::string_view("--quick");
  if (argc != 3 && !isQuick) {
    std::fprintf(stderr, "usage: %s AREA REPORT [--quick] [--benchmark_...]\n", argv[0]);
    return EXIT_FAILURE;
  }
  ::umask(022);
  Area::current().use(argv[1]);
  if (isQuick) beQuick();
  registerMemory();
  registerInstalls();
  registerLookups();
  registerDeletions();
  registerHosts();
  benchmark::RunSpecifiedBenchmarks();

  std::cout << '\n';
  Report::current().print(std::cout);
  Report::current().write(argv[2]);
  return EXIT_SUCCESS;
}
