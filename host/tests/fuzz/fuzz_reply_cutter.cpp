#include <runtime/engine/reply_cutter.h>

#include <cstdlib>

// Any bytes, in any pieces: the first byte of the input sets the size of the pieces. However they
// come, the same frame must be cut, and never more than what came.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const int piece = 1 + data[0] % 16;
    const auto* bytes = reinterpret_cast<const char*>(data + 1);
    const auto count = static_cast<int>(size - 1);

    ReplyCutter whole(mbapFraming());
    ReplyCutter pieces(mbapFraming());
    const bool complete = whole.append(bytes, count);
    int fed = 0;
    bool cut = false;
    while (!cut && fed < count) {
        const int next = std::min(piece, count - fed);
        cut = pieces.append(bytes + fed, next);
        fed += next;
    }
    const bool plausible = !whole.implausible() && !pieces.implausible();
    const bool wrong = (count > 0 && complete != cut) || (complete && whole.surplus() < 0)
        || (cut && pieces.surplus() < 0) || (complete && whole.frame().size() > count)
        || (complete && cut && plausible && whole.frame() != pieces.frame());
    if (wrong) {
        std::abort();
    }
    return 0;
}
