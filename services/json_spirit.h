// The documents of events. json_spirit isn't packaged any more; its name for a JSON value stays and
// stands for nlohmann's json, whose objects are maps, so that keys come out sorted.
#pragma once

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <utility>

namespace json_spirit {

using Value = nlohmann::json;

// An object of single values. A Value takes memory to destroy a filled object, and ends the process
// where there is none; this one gives its values back one by one.
class Document : public Value {
 public:
  using Field = std::pair<const char* const, Value>;

  Document() : Value(Value::object()) {}
  Document(std::initializer_list<Field> fields) : Document() {
    for (const auto& [key, value] : fields) (*this)[key] = value;
  }
  Document(const Document& other) : Document() {
    static_cast<Value&>(*this) = static_cast<const Value&>(other);
  }
  ~Document() { get_ref<object_t&>().clear(); }
  Document& operator=(const Document&) = delete;
};

}  // namespace json_spirit
