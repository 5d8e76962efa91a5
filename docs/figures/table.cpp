// SPDX-License-Identifier: MIT
#include <docs/figures/table.h>

#include <cmath>
#include <locale>

namespace figures {

Table::Table(const std::filesystem::path& folder, const std::string& name,
             std::initializer_list<const char*> columns) {
  file_.exceptions(std::ios::badbit | std::ios::failbit);
  file_.imbue(std::locale::classic());
  file_.open(folder / (name + ".csv"));
  const char* separator = "";
  for (const char* column : columns) {
    file_ << separator << column;
    separator = ",";
  }
  file_ << '\n';
}

void Table::row(std::initializer_list<double> numbers) {
  const char* separator = "";
  for (const double number : numbers) {
    file_ << separator;
    if (!std::isnan(number)) file_ << number + 0.0;  // no negative zero
    separator = ",";
  }
  file_ << '\n';
}

}  // namespace figures
