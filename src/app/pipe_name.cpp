// PipePath: plain text work, built natively too for the argument's fuzz target.
#include "app/pipe_name.h"

namespace {

// A pipe's path may be 256 characters long, its prefix included.
constexpr size_t kMaxPipePath = 256;

}  // namespace

std::wstring PipePath(const std::wstring& name)
{
    std::wstring path = L"\\\\.\\pipe\\" + name;
    if (name.empty() || path.size() > kMaxPipePath || name.find_first_of(L"\\/") != std::wstring::npos ||
        name.find(L'\0') != std::wstring::npos)
        return std::wstring();
    return path;
}
