// The page of a report.
#pragma once

#include <string>

#include "agent/report_data.h"

namespace agent {

// One HTML document that needs nothing from elsewhere and shows itself in light or dark as the
// reader prefers. No name becomes markup, whatever it holds: all of it is text in a document tree.
std::string report_page(const Report_Data& data);

}  // namespace agent
