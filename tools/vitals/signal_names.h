// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What the name of a signal says about it, and which signals of a recording are meant.
///
///   isEcgName("EKG II");                // true, as "ECG chest", "MLII" and "V5" are
///   splitUnit("ECG (uV)").unit;         // "uV"
///   chooseSignals(*file, {}).ecg;       // the first ECG

#include <tools/vitals/signal_file.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Zephly::recorders {

/// ASCII letters only.
std::string lowerCase(std::string_view text);

struct NamedUnit {
  std::string name;
  std::string unit;  ///< empty: none
};

/// Of "name (unit)", "name [unit]" and, for units of time and voltage, "name_unit".
NamedUnit splitUnit(const std::string& text);

/// Whether a word of the name is ECG, EKG, lead, or that of a lead: I, aVF, V5, MLII.
bool isEcgName(const std::string& name);
/// Whether the name begins a word of respiration, thorax, chest, abdomen or impedance.
bool isRespirationName(const std::string& name);

/// How many millivolt the unit is; empty when it is no unit of voltage.
std::optional<double> millivoltsOf(const std::string& unit);

/// What the user asked for.
struct SignalOptions {
  std::optional<std::string> ecg = std::nullopt;
  std::optional<std::string> respiration = std::nullopt;
};

struct SignalChoice {
  std::optional<std::size_t> ecg;
  std::optional<std::size_t> respiration;
};

/// A signal that was named: by its exact name, or else by that name in another case. Otherwise the
/// first that is named like one; if there is only one signal, it is the ECG. Throws InputError when
/// there is none, or its rate is out of range.
SignalChoice chooseSignals(const SignalFile& file, const SignalOptions& options);

}  // namespace Zephly::recorders
