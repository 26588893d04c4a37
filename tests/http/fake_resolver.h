// A stand-in for name resolution in the tests: while a FakeResolver lives, the test program's
// imports of GetAddrInfoW and FreeAddrInfoW point at fakes. The fake knows three names and
// answers every other name "not found", so a test can reach ::1 through a host name (the URL
// syntax has no bracketed IPv6) and no lookup ever leaves the machine.
//   v6only.test   ::1
//   v6first.test  ::1, then 127.0.0.1
//   v4first.test  127.0.0.1, then ::1
#pragma once
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <cstring>
#include <string>

class FakeResolver {
public:
    FakeResolver()
    {
        getSlot = ImportSlot("GetAddrInfoW");
        freeSlot = ImportSlot("FreeAddrInfoW");
        if (!getSlot || !freeSlot)
            return;
        realGet = Swap(getSlot, reinterpret_cast<void*>(&FakeGet));
        realFree = Swap(freeSlot, reinterpret_cast<void*>(&FakeFree));
    }

    ~FakeResolver()
    {
        if (getSlot && freeSlot) {
            Swap(getSlot, realGet);
            Swap(freeSlot, realFree);
        }
    }

    FakeResolver(const FakeResolver&) = delete;
    FakeResolver& operator=(const FakeResolver&) = delete;

    // Both imports point at the fakes.
    bool Active() const
    {
        return getSlot && freeSlot && *getSlot == reinterpret_cast<void*>(&FakeGet) &&
               *freeSlot == reinterpret_cast<void*>(&FakeFree);
    }

private:
    // The import-address-table entry of a ws2_32 function in the test program's own image.
    static void** ImportSlot(const char* function)
    {
        auto* base = reinterpret_cast<unsigned char*>(GetModuleHandleW(nullptr));
        auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
        auto* nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
        const auto& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        if (directory.VirtualAddress == 0)
            return nullptr;
        for (auto* import = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress); import->Name;
             ++import) {
            if (_stricmp(reinterpret_cast<char*>(base + import->Name), "ws2_32.dll") != 0 ||
                import->OriginalFirstThunk == 0)
                continue;
            auto* names = reinterpret_cast<IMAGE_THUNK_DATA*>(base + import->OriginalFirstThunk);
            auto* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + import->FirstThunk);
            for (; names->u1.AddressOfData; ++names, ++slots) {
                if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
                    continue;
                auto* byName = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
                if (std::strcmp(reinterpret_cast<char*>(byName->Name), function) == 0)
                    return reinterpret_cast<void**>(&slots->u1.Function);
            }
        }
        return nullptr;
    }

    static void* Swap(void** slot, void* value)
    {
        DWORD old = 0;
        VirtualProtect(slot, sizeof(void*), PAGE_READWRITE, &old);
        void* previous = *slot;
        *slot = value;
        VirtualProtect(slot, sizeof(void*), old, &old);
        return previous;
    }

    struct Answer {
        ADDRINFOW entries[2];
        sockaddr_in v4;
        sockaddr_in6 v6;
    };

    static void Fill(ADDRINFOW& entry, sockaddr* address, size_t length)
    {
        std::memset(&entry, 0, sizeof(entry));
        entry.ai_family = address->sa_family;
        entry.ai_socktype = SOCK_STREAM;
        entry.ai_protocol = IPPROTO_TCP;
        entry.ai_addrlen = length;
        entry.ai_addr = address;
    }

    static INT WSAAPI FakeGet(PCWSTR node, PCWSTR, const ADDRINFOW*, PADDRINFOW* result)
    {
        static Answer answer;
        std::wstring name = node ? node : L"";
        bool v6First = name == L"v6only.test" || name == L"v6first.test";
        int count = name == L"v6only.test" ? 1 : 2;
        if (name != L"v6only.test" && name != L"v6first.test" && name != L"v4first.test") {
            *result = nullptr;
            return WSAHOST_NOT_FOUND;
        }
        std::memset(&answer.v4, 0, sizeof(answer.v4));
        answer.v4.sin_family = AF_INET;
        answer.v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        std::memset(&answer.v6, 0, sizeof(answer.v6));
        answer.v6.sin6_family = AF_INET6;
        answer.v6.sin6_addr = in6addr_loopback;
        auto* v4 = reinterpret_cast<sockaddr*>(&answer.v4);
        auto* v6 = reinterpret_cast<sockaddr*>(&answer.v6);
        Fill(answer.entries[0], v6First ? v6 : v4, v6First ? sizeof(answer.v6) : sizeof(answer.v4));
        if (count == 2) {
            Fill(answer.entries[1], v6First ? v4 : v6, v6First ? sizeof(answer.v4) : sizeof(answer.v6));
            answer.entries[0].ai_next = &answer.entries[1];
        }
        *result = &answer.entries[0];
        return 0;
    }

    static void WSAAPI FakeFree(PADDRINFOW) {}

    void** getSlot = nullptr;
    void** freeSlot = nullptr;
    void* realGet = nullptr;
    void* realFree = nullptr;
};
