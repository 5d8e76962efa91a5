// SPDX-License-Identifier: MIT
#include <tests/support/fake_bluez/bus_value.h>

#include <system_error>

namespace fake_bluez {

namespace {

class Container {
 public:
  Container(sd_bus_message& message, char type, const char* contents) : message_(message) {
    check(sd_bus_message_open_container(&message_, type, contents), "open a container");
  }
  Container(const Container&) = delete;
  Container& operator=(const Container&) = delete;
  ~Container() { sd_bus_message_close_container(&message_); }

 private:
  sd_bus_message& message_;
};

struct VariantWriter {
  sd_bus_message& message;

  void operator()(bool value) const { basic("b", 'b', int{value}); }
  void operator()(std::int16_t value) const { basic("n", 'n', value); }
  void operator()(std::uint16_t value) const { basic("q", 'q', value); }
  void operator()(std::uint32_t value) const { basic("u", 'u', value); }
  void operator()(const std::string& value) const {
    const Container variant(message, 'v', "s");
    append(message, value);
  }
  void operator()(const std::vector<std::string>& value) const {
    const Container variant(message, 'v', "as");
    append(message, value);
  }
  void operator()(const Bytes& value) const {
    const Container variant(message, 'v', "ay");
    check(sd_bus_message_append_array(&message, 'y', value.data(), value.size()), "append bytes");
  }
  void operator()(const ObjectPath& value) const {
    const Container variant(message, 'v', "o");
    append(message, value);
  }
  void operator()(const Odd& value) const {
    const Container variant(message, 'v', value.signature.c_str());
    value.write(message);
  }

 private:
  template <class T>
  void basic(const char* signature, char type, T value) const {
    const Container variant(message, 'v', signature);
    check(sd_bus_message_append_basic(&message, type, &value), "append a value");
  }
};

std::string basicText(sd_bus_message& message, char type) {
  union {
    int boolean;
    std::uint8_t y;
    std::int16_t n;
    std::uint16_t q;
    std::int32_t i;
    std::uint32_t u;
    std::int64_t x;
    std::uint64_t t;
    double d;
    const char* text;
  } value{};
  check(sd_bus_message_read_basic(&message, type, &value), "read a value");
  switch (type) {
    case 'b':
      return value.boolean != 0 ? "true" : "false";
    case 's':
    case 'o':
    case 'g':
      return value.text;
    case 'y':
      return std::to_string(value.y);
    case 'n':
      return std::to_string(value.n);
    case 'q':
      return std::to_string(value.q);
    case 'i':
      return std::to_string(value.i);
    case 'u':
      return std::to_string(value.u);
    case 'x':
      return std::to_string(value.x);
    case 't':
      return std::to_string(value.t);
    case 'd':
      return std::to_string(value.d);
    default:
      return std::string("?") + type;
  }
}

std::string listText(sd_bus_message& message, const char* separator) {
  std::string text;
  char type = 0;
  const char* contents = nullptr;
  while (sd_bus_message_peek_type(&message, &type, &contents) > 0) {
    if (!text.empty()) text += separator;
    if (contents == nullptr) {
      text += basicText(message, type);
      continue;
    }
    check(sd_bus_message_enter_container(&message, type, contents), "enter a container");
    const std::string inner = listText(message, type == 'e' ? "=" : " ");
    text += type == 'a' || type == 'r' ? '{' + inner + '}' : inner;
    check(sd_bus_message_exit_container(&message), "leave a container");
  }
  return text;
}

}  // namespace

int check(int result, const char* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
  return result;
}

void append(sd_bus_message& message, const std::string& text) {
  check(sd_bus_message_append_basic(&message, 's', text.c_str()), "append a text");
}

void append(sd_bus_message& message, const ObjectPath& path) {
  check(sd_bus_message_append_basic(&message, 'o', path.text.c_str()), "append a path");
}

void append(sd_bus_message& message, const std::vector<std::string>& texts) {
  const Container array(message, 'a', "s");
  for (const std::string& text : texts) append(message, text);
}

void append(sd_bus_message& message, const Value& value) {
  std::visit(VariantWriter{message}, value);
}

void append(sd_bus_message& message, const Properties& properties) {
  const Container array(message, 'a', "{sv}");
  for (const auto& [name, value] : properties) {
    const Container entry(message, 'e', "sv");
    append(message, name);
    append(message, value);
  }
}

void append(sd_bus_message& message, const Interfaces& interfaces) {
  const Container array(message, 'a', "{sa{sv}}");
  for (const auto& [name, properties] : interfaces) {
    const Container entry(message, 'e', "sa{sv}");
    append(message, name);
    append(message, properties);
  }
}

std::string textOf(sd_bus_message& message) {
  std::string text = listText(message, " ");
  check(sd_bus_message_rewind(&message, 1), "rewind a message");
  return text;
}

}  // namespace fake_bluez
