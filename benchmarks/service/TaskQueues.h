/// The pools that are compared.
#pragma once

#include <functional>
#include <string>

#include <httplib.h>

/// Makes what a httplib::Server hands its connections to: a pool with its default options. Throws
/// std::invalid_argument for another name.
///
/// \param name  libktasync, cpp-httplib or Boost.Asio
std::function<httplib::TaskQueue*()> taskQueueOf(const std::string& name);
