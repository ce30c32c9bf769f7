#include "services/metadata.h"

#include "services/json_spirit.h"

namespace MTF {
namespace {

// Takes the values of the object at the top as they come, so that neither their number nor their
// depth takes memory.
class Metadata_Reader : public json_spirit::Value::json_sax_t {
 public:
  Metadata_Record record;

  bool is_whole() const { return is_object_ && has_channels_; }

  bool number_unsigned(number_unsigned_t value) override {
    if (depth_ == 1 && key_ == "seq") record.seq = static_cast<unsigned int>(value);
    if (depth_ == 1 && key_ == "began") record.began = static_cast<long long>(value);
    if (depth_ != 1 || key_ != "channels") return true;
    record.channels = value;
    has_channels_ = true;
    return true;
  }
  bool string(string_t& value) override {
    if (depth_ == 1) record.host[key_] = value;
    return true;
  }
  bool key(string_t& name) override {
    if (depth_ == 1) key_ = name;
    return true;
  }
  bool start_object(std::size_t) override {
    if (depth_ == 0) is_object_ = true;
    return enter();
  }
  bool start_array(std::size_t) override { return enter(); }
  bool end_object() override { return leave(); }
  bool end_array() override { return leave(); }
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool parse_error(std::size_t, const std::string&, const json_spirit::Value::exception&) override {
    return false;
  }

 private:
  bool enter() { return ++depth_, true; }
  bool leave() { return --depth_, true; }

  std::size_t depth_ = 0;
  std::string key_;  // of the value that comes next, in the object at the top
  bool is_object_ = false;
  bool has_channels_ = false;
};

}  // namespace

bool Metadata::to_s(std::stringstream& out) const {
  json_spirit::Document document;
  for (const auto& [key, value] : host_) document[key] = value;
  document["seq"] = seq_;
  document["channels"] = channels_;
  if (began_) document["began"] = *began_;
  if (!hash_algorithm_.empty()) document["hash_algorithm"] = hash_algorithm_;
  out << document.dump(-1, ' ', false, json_spirit::Value::error_handler_t::replace);
  return out.good();
}

bool read_metadata(const std::string& text, Metadata_Record& out) {
  Metadata_Reader reader;
  if (!json_spirit::Value::sax_parse(text, &reader) || !reader.is_whole()) return false;
  out = reader.record;
  return true;
}

}  // namespace MTF
