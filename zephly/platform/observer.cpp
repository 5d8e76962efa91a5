// SPDX-License-Identifier: MIT
#include <zephly/platform/observer.h>

#include <zephly/platform/cb_peripheral.h>

#include <cstddef>
#include <string>
#include <utility>

namespace Zephly {

namespace {

Observer* installed = nullptr;

// Zero past the end.
unsigned char byteAt(std::string_view text, std::size_t index) {
  return index < text.size() ? static_cast<unsigned char>(text[index]) : '\0';
}

bool isC0Control(unsigned char code) { return code < 0x20 || code == 0x7F; }

bool isC1Control(unsigned char code) { return code >= 0x80 && code <= 0x9F; }

std::string escape(unsigned char code) {
  constexpr std::string_view hexDigits = "0123456789ABCDEF";
  return {'\\', 'u', '{', hexDigits[code >> 4], hexDigits[code & 0xF], '}'};
}

// `text`, UTF-8, as a string literal in double quotes. Control characters are escaped, so that the
// result is always one line.
std::string quoted(std::string_view text) {
  std::string literal = "\"";
  for (std::size_t index = 0; index < text.size(); ++index) {
    const char character = text[index];
    const unsigned char code = byteAt(text, index);
    const unsigned char next = byteAt(text, index + 1);
    if (character == '"' || character == '\\') {
      literal += '\\';
      literal += character;
    } else if (character == '\n') {
      literal += "\\n";
    } else if (character == '\r') {
      literal += "\\r";
    } else if (character == '\t') {
      literal += "\\t";
    } else if (isC0Control(code)) {
      literal += escape(code);
    } else if (code == 0xC2 && isC1Control(next)) {  // U+0080 to U+009F in two bytes
      literal += escape(next);
      ++index;
    } else {
      literal += character;
    }
  }
  return literal + "\"";
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const MotionTrace& fact) {
  return out << fact.highPassed << ", " << fact.displacement;
}

std::ostream& operator<<(std::ostream& out, const ConnectionFailure& /*fact*/) {
  return out << "didFailToConnectPeripheral";
}

std::ostream& operator<<(std::ostream& out, const LinkLoss& fact) {
  return out << "didDisconnectPeripheral: " << fact.reason;
}

std::ostream& operator<<(std::ostream& out, const DiscoveryFailure& fact) {
  return out << "Error: Optional(" << quoted(fact.reason) << ")";
}

std::ostream& operator<<(std::ostream& out, const CharacteristicFound& fact) {
  return out << fact.description;
}

std::ostream& operator<<(std::ostream& out, const SubscriptionFailure& fact) {
  return out << fact.characteristic.UUID().description()
             << " Error changing notification state: " << fact.reason;
}

std::ostream& operator<<(std::ostream& out, const ReadFailure& fact) {
  return out << "Error reading characteristics: " << fact.reason;
}

Observer* observer() { return installed; }

Observer* setObserver(Observer* next) { return std::exchange(installed, next); }

}  // namespace Zephly
