// Window: the ring, its refill from the prefix, and the copies that reach beyond it.
#include "zstd/window.h"

#include <algorithm>
#include <cstring>

Window::Window(ZstdSink& sink, HistoryReader* prefix, uint64_t prefixSize)
    : sink(sink), prefix(prefix), prefixSize(prefix ? prefixSize : 0), prefixView(prefix ? prefix->View() : nullptr)
{
}

// The ring starts small and doubles as the frame's output grows, up to what the frame can reach
// in it or kRingHistoryMax, whichever is smaller. An old file in memory is read where it lies;
// one that is not is loaded into the ring as far as the ring reaches, so that matches into its
// end find it there.
constexpr size_t kRingHistoryStart = 64 * 1024;

bool Window::StartFrame(uint64_t windowSize, uint64_t frameSinkStart)
{
    uint64_t inRing = prefixView ? 0 : prefixSize;
    bool far = windowSize >= kRingHistoryMax || inRing >= kRingHistoryMax;
    historyLimit = far ? kRingHistoryMax : static_cast<size_t>(std::min<uint64_t>(windowSize + inRing, kRingHistoryMax));
    size_t load = inRing < historyLimit ? static_cast<size_t>(inRing) : historyLimit;
    sinkStart = frameSinkStart;
    produced = 0;
    held = 0;
    pending = 0;
    head = 0;
    size_t history = load > kRingHistoryStart ? load : kRingHistoryStart;
    Resize(history < historyLimit ? history : historyLimit);
    if (load && !prefix->ReadAt(prefixSize - load, ring.get(), load))
        return false;
    held = load;
    head = load;
    return true;
}

void Window::PrepareBlock()
{
    if (held + kBlockMax > historyMax && historyMax < historyLimit) {
        size_t history = historyMax * 2 > held + kBlockMax ? historyMax * 2 : held + kBlockMax;
        Resize(history < historyLimit ? history : historyLimit);
    }
}

void Window::Resize(size_t history)
{
    size_t wanted = history + 2 * (kBlockMax + kCopySlack);
    if (wanted > allocated) {
        std::unique_ptr<uint8_t[]> grown(new uint8_t[wanted]);
        // The history, oldest first, at the start of the new ring.
        size_t oldest = head >= held ? head - held : head + size - held;
        size_t first = oldest + held <= size ? held : size - oldest;
        if (held) {
            std::memcpy(grown.get(), ring.get() + oldest, first);
            std::memcpy(grown.get() + first, ring.get(), held - first);
        }
        ring.swap(grown);
        allocated = wanted;
        head = held;
    }
    size = allocated - kBlockMax - kCopySlack;
    historyMax = size - kBlockMax - kCopySlack;
}

void Window::EndBlock(size_t length)
{
    if (head + length > size) {
        std::memcpy(ring.get(), ring.get() + size, head + length - size);
        head = head + length - size;
    } else {
        head += length;
    }
    held = held + length < historyMax ? held + length : historyMax;
    pending += length;
    produced += static_cast<int64_t>(length);
}

bool Window::Flush(uint64_t& written)
{
    size_t start = head >= pending ? head - pending : head + size - pending;
    size_t first = start + pending <= size ? pending : size - start;
    if (first && !sink.Write(ring.get() + start, first))
        return false;
    if (pending > first && !sink.Write(ring.get(), pending - first))
        return false;
    written += pending;
    pending = 0;
    return true;
}

bool Window::CopyMatch(uint8_t* out, uint64_t distance, size_t length, bool& readFailed)
{
    readFailed = false;
    int64_t inBlock = out - (ring.get() + head);
    int64_t here = produced + inBlock;
    if (distance > static_cast<uint64_t>(here) + prefixSize)
        return false;
    int64_t from = here - static_cast<int64_t>(distance);
    if (distance <= held + static_cast<uint64_t>(inBlock)) {
        CopyFromRing(out, from, length);
        return true;
    }
    readFailed = !CopyFar(out, from, length);
    return !readFailed;
}

bool Window::CopyFar(uint8_t* out, int64_t from, size_t length)
{
    int64_t ringLow = produced - static_cast<int64_t>(held);
    while (length) {
        size_t piece = length;
        if (from < 0) {
            if (static_cast<uint64_t>(-from) < piece)
                piece = static_cast<size_t>(-from);
            if (!prefix->ReadAt(prefixSize - static_cast<uint64_t>(-from), out, piece))
                return false;
        } else if (from < ringLow) {
            if (static_cast<uint64_t>(ringLow - from) < piece)
                piece = static_cast<size_t>(ringLow - from);
            if (!sink.ReadAt(sinkStart + static_cast<uint64_t>(from), out, piece))
                return false;
        } else {
            CopyFromRing(out, from, piece);
        }
        out += piece;
        from += static_cast<int64_t>(piece);
        length -= piece;
    }
    return true;
}

// Copies from the ring byte by byte where source and destination overlap, following the ring
// round its end: history before the block wraps there, the block itself runs on linearly.
void Window::CopyFromRing(uint8_t* out, int64_t from, size_t length)
{
    uint8_t* base = ring.get();
    while (length) {
        size_t piece = length;
        const uint8_t* source;
        if (from >= produced) {
            source = base + head + (from - produced);
        } else {
            int64_t back = produced - from;
            int64_t physical = static_cast<int64_t>(head) - back;
            if (physical < 0)
                physical += static_cast<int64_t>(size);
            source = base + physical;
            size_t toEnd = size - static_cast<size_t>(physical);
            if (static_cast<uint64_t>(back) < piece)
                piece = static_cast<size_t>(back);
            if (toEnd < piece)
                piece = toEnd;
        }
        if (static_cast<size_t>(out - source) >= piece || source > out) {
            std::memmove(out, source, piece);
        } else {
            for (size_t i = 0; i < piece; ++i)
                out[i] = source[i];
        }
        out += piece;
        from += static_cast<int64_t>(piece);
        length -= piece;
    }
}
