// The log's words for each ZstdError.
#include "zstd/decoder.h"

const char* ZstdErrorText(ZstdError error)
{
    switch (error) {
    case ZstdError::None: return "no error";
    case ZstdError::NoFrame: return "no frame in the input";
    case ZstdError::Truncated: return "input ends inside a frame";
    case ZstdError::BadMagic: return "not a Zstandard frame";
    case ZstdError::FrameHeader: return "malformed frame header";
    case ZstdError::Dictionary: return "frame needs a dictionary";
    case ZstdError::WindowTooLarge: return "frame window above the limit";
    case ZstdError::ContentTooLarge: return "frame content above the limit";
    case ZstdError::ContentSize: return "decoded size differs from the frame's content size";
    case ZstdError::Checksum: return "content checksum mismatch";
    case ZstdError::BlockType: return "block of the reserved type";
    case ZstdError::BlockSize: return "block larger than the frame allows";
    case ZstdError::Literals: return "malformed literals section";
    case ZstdError::Huffman: return "malformed Huffman table or stream";
    case ZstdError::FseTable: return "malformed FSE table";
    case ZstdError::Sequences: return "malformed sequences section";
    case ZstdError::Offset: return "match offset outside the history";
    case ZstdError::Write: return "output could not be written";
    case ZstdError::Read: return "history could not be read back";
    case ZstdError::ZeroOffset: return "repeat offset of 0";
    case ZstdError::HuffmanStates: return "Huffman weights end before their states";
    case ZstdError::ExtraBytes: return "bytes left after a section of no sequences";
    case ZstdError::ReservedBits: return "reserved bits set in the sequences modes";
    case ZstdError::HuffmanEnd: return "Huffman stream does not end where its symbols do";
    case ZstdError::SequencesEnd: return "sequences stream not read exactly to its start";
    }
    return "unknown error";
}
