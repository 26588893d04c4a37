// File helpers shared by the HTTP tests that write response bodies to disk.
#pragma once
#include <windows.h>

#include <fstream>
#include <iterator>
#include <string>

// A path in the temporary folder, unique to this test process.
inline std::wstring TempPath(const wchar_t* name)
{
    wchar_t directory[MAX_PATH];
    GetTempPathW(MAX_PATH, directory);
    return std::wstring(directory) + name + std::to_wstring(GetCurrentProcessId());
}

inline std::string ReadFile(const std::wstring& path)
{
    std::ifstream in(path.c_str(), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
