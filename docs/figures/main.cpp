// SPDX-License-Identifier: MIT
// Writes the data of the figures in docs/streams: zephly_figures FOLDER

#include <docs/figures/chains.h>
#include <docs/figures/figures.h>

#include <exception>
#include <filesystem>
#include <iostream>

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::cerr << "usage: zephly_figures FOLDER\n";
    return 2;
  }
  const std::filesystem::path folder(argv[1]);
  std::filesystem::create_directories(folder);
  figures::requireTheKitsChains();
  figures::writeEcg(folder);
  figures::writeRespiration(folder);
  figures::writeMotion(folder);
  figures::writeTemperature(folder);
  return 0;
} catch (const std::exception& error) {
  std::cerr << "zephly_figures: " << error.what() << '\n';
  return 1;
}
