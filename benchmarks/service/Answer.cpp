#include "Answer.h"

namespace {

constexpr std::string_view endOfHead = "\r\n\r\n";
constexpr std::string_view good = "HTTP/1.1 200 ";

bool beginsWith(std::string_view text, std::string_view begin)
{
    return text.substr(0, begin.size()) == begin;
}

}  // namespace

bool Answer::add(std::string_view bytes)
{
    received += bytes;
    if (head == 0) {
        const std::size_t end = received.find(endOfHead);
        head = end == std::string::npos ? 0 : end + endOfHead.size();
    }
    return head != 0 && received.size() >= head + body.size();
}

std::string_view Answer::fault(bool isClosed) const
{
    if (received.empty()) {
        return isClosed ? "no answer" : "";
    }
    if (head == 0) {
        return isClosed ? "cut off" : "";
    }
    if (!beginsWith(received, good)) {
        return "another status";
    }
    const std::string_view came = std::string_view(received).substr(head);
    if (came.size() > body.size() && beginsWith(came, body)) {
        return "more than one answer";
    }
    if (!beginsWith(body, came)) {
        return "another body";
    }
    return isClosed && came.size() < body.size() ? "cut off" : "";
}
