#include "services/id_mapper.h"

#include "platform/host.h"

namespace MTF {
namespace {

template <class Look_Up>
const std::string& find(std::unordered_map<unsigned long long, std::string>& names,
                        unsigned long long id, Look_Up look_up) {
  const auto known = names.find(id);
  if (known != names.end()) return known->second;
  return names.emplace(id, look_up(id)).first->second;
}

}  // namespace

const std::string& ID_Mapper::user(unsigned long long id) {
  return find(users_, id, platform::user_name);
}

const std::string& ID_Mapper::group(unsigned long long id) {
  return find(groups_, id, platform::group_name);
}

}  // namespace MTF
