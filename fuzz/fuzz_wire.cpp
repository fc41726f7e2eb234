// Any bytes on the line between the resident and the screen helper, in either direction: read
// line by line as each end reads its socket, every line is a command, an event or nothing,
// never a crash; whatever either end decodes encodes to exactly one line that decodes to the
// same values (so no text a page or a person typed can split a message in two or smuggle a
// second one onto the wire), and no folder ever reaches the helper in a page.
#include "core/screen_protocol.h"

#include <cstdint>
#include <cstdlib>
#include <variant>

using namespace tovin;
using namespace tovin::ScreenProtocol;

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

// Encoding is a fixed point after one decode: the second trip changes nothing.
template <typename Message, typename Decode>
void roundTrips(const Message& message, Decode decode) {
    const QByteArray line = encode(message);
    require(line.endsWith('\n') && line.count('\n') == 1);
    const auto again = decode(line);
    require(again.has_value() && again->index() == message.index());
    require(encode(*again) == line);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    for (const QByteArray& piece : bytes.split('\n')) {
        if (const auto command = decodeCommand(piece + '\n')) {
            roundTrips(*command, decodeCommand);
            std::visit(
                [](const auto& c) {
                    if constexpr (requires { c.page; })
                        require(c.page.webRoot.isEmpty());
                },
                *command);
        }
        if (const auto event = decodeEvent(piece + '\n'))
            roundTrips(*event, decodeEvent);
    }
    return 0;
}
