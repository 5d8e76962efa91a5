// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The data of the figures, one function for each page. Each writes its CSV files into
/// `folder`, which exists.
///
///     figures::writeEcg("build/figures/data");

#include <filesystem>

namespace figures {

void writeEcg(const std::filesystem::path& folder);
/// The respiration chain, and its behaviour when the electrodes lose contact.
void writeRespiration(const std::filesystem::path& folder);
/// The displacement of the exercise detector. Redirects standard output while it runs.
void writeMotion(const std::filesystem::path& folder);
/// The estimate of the body temperature.
void writeTemperature(const std::filesystem::path& folder);

}  // namespace figures
