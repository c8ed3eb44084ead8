/// What the machine grants this process.
#pragma once

#include <string>

namespace KT {
namespace detail {

/// The processors' worth of time that the control group of this process may use, rounded up; 0 if
/// there is no limit. `root` is "/", or where a test has its files.
int processorsOfControlGroup(const std::string& root);

/// The processors in the affinity mask; 0 if it can't be read.
int processorsOfAffinity();

}  // namespace detail
}  // namespace KT
