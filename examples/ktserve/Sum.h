/// The work of /sum.
#pragma once

#include <string>

#include <ktasync/KTStopToken.h>

/// SHA-256 of what an open file has from its current position on, in hexadecimal. Throws HttpError:
/// 503 when `stop` is raised, 500 if it can't be read. Blocks as the disk does. Any thread may call
/// it.
std::string sha256Of(int file, const KT::KTStopToken& stop);
