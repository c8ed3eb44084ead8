/// The snapshot for scripts.
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include "History.h"
#include "Sample.h"

/// One line of ASCII, whatever bytes the names in it have: those that are no UTF-8 become U+FFFD.
std::string asLine(const nlohmann::ordered_json& value);

/// What --once --json prints. docs/kttop.md tells the fields.
std::string asJson(const ProcessIdentity& process, const Snapshot& snapshot);
