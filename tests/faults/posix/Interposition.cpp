#include "tests/faults/posix/Interposition.h"

#include "platform/Clock.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <link.h>
#include <sched.h>
#include <string_view>
#include <unwind.h>

namespace kqlib::test {

namespace {

constexpr const char* COMMON_LIBRARY = "libkqcommon.so";
constexpr const char* NET_LIBRARY = "libkqnet.so";
constexpr std::string_view PLATFORM_PREFIX = "_ZN5kqlib8platform";

/// How far IsCalledByLibraries looks up.
constexpr int MAX_FRAMES = 64;

/// From the first to the last byte that is mapped of a module.
struct RANGE
{
    std::uintptr_t from = 0;
    std::uintptr_t to = 0;

    [[nodiscard]] bool Holds(const void* address) const
    {
        const auto value = reinterpret_cast<std::uintptr_t>(address);
        return value >= from && value < to;
    }
};

struct MODULES
{
    RANGE common;
    RANGE net;
    RANGE program; ///< the first one listed, without a name
};

int NoteModule(dl_phdr_info* info, std::size_t, void* out)
{
    RANGE range{UINTPTR_MAX, 0};
    for (int index = 0; index < info->dlpi_phnum; ++index) {
        const auto& part = info->dlpi_phdr[index];
        if (part.p_type != PT_LOAD)
            continue;
        range.from = std::min<std::uintptr_t>(range.from, info->dlpi_addr + part.p_vaddr);
        range.to = std::max<std::uintptr_t>(range.to, info->dlpi_addr + part.p_vaddr + part.p_memsz);
    }
    auto& modules = *static_cast<MODULES*>(out);
    if (info->dlpi_name == nullptr || *info->dlpi_name == '\0') {
        if (modules.program.to == 0)
            modules.program = range;
    } else if (std::strstr(info->dlpi_name, COMMON_LIBRARY) != nullptr) {
        modules.common = range;
    } else if (std::strstr(info->dlpi_name, NET_LIBRARY) != nullptr) {
        modules.net = range;
    }
    return 0;
}

const MODULES& GetModules()
{
    static const MODULES modules = [] {
        MODULES found;
        dl_iterate_phdr(NoteModule, &found);
        return found;
    }();
    return modules;
}

/// Whether code of the program belongs to the standard library: a function that the libraries use too is exported, so
/// its name is known.
bool IsStandardCode(const void* code)
{
    Dl_info info;
    const ElfW(Sym)* symbol = nullptr;
    if (dladdr1(code, &info, reinterpret_cast<void**>(const_cast<ElfW(Sym)**>(&symbol)), RTLD_DL_SYMENT) == 0 ||
        info.dli_sname == nullptr || symbol == nullptr)
        return false;
    const auto offset =
        static_cast<std::size_t>(static_cast<const char*>(code) - static_cast<const char*>(info.dli_saddr));
    if (offset >= symbol->st_size)
        return false;
    constexpr std::array<std::string_view, 7> PREFIXES = {"_ZNSt",          "_ZNKSt", "_ZSt",          "_ZN9__gnu_cxx",
                                                          "_ZNK9__gnu_cxx", "_Zn",    "pthread_create"};
    const std::string_view name = info.dli_sname;
    return std::any_of(PREFIXES.begin(), PREFIXES.end(),
                       [name](std::string_view prefix) { return name.substr(0, prefix.size()) == prefix; });
}

struct SEARCH
{
    int frames = 0;
    bool found = false;
};

_Unwind_Reason_Code LookAtFrame(_Unwind_Context* context, void* search)
{
    auto& state = *static_cast<SEARCH*>(search);
    // The address after the call may belong to the next function already.
    const void* const code = reinterpret_cast<const void*>(_Unwind_GetIP(context) - 1);
    if (IsInLibraries(code)) {
        state.found = true;
        return _URC_END_OF_STACK;
    }
    // The first two are this file's own.
    if (++state.frames > 2 && GetModules().program.Holds(code) && !IsStandardCode(code))
        return _URC_END_OF_STACK;
    return state.frames < MAX_FRAMES ? _URC_NO_REASON : _URC_END_OF_STACK;
}

/// Wrappers that are being run by this thread, Undisturbed scopes included.
thread_local int depth = 0;

} // namespace

void* FindNext(const void* own)
{
    Dl_info info;
    void* const next =
        dladdr(own, &info) != 0 && info.dli_sname != nullptr ? dlsym(RTLD_NEXT, info.dli_sname) : nullptr;
    if (next == nullptr) {
        std::fprintf(stderr, "faults: nothing behind %s\n", info.dli_sname != nullptr ? info.dli_sname : "a wrapper");
        std::abort();
    }
    return next;
}

std::uint32_t GetRealTick()
{
    return Real<&platform::TickMs>()();
}

bool IsInLibraries(const void* code)
{
    const MODULES& modules = GetModules();
    return modules.net.Holds(code) || modules.common.Holds(code);
}

bool IsCalledByLibraries()
{
    SEARCH search;
    _Unwind_Backtrace(LookAtFrame, &search);
    return search.found;
}

std::vector<std::string> GetUnwrappedFunctions()
{
    // The names stand in the library's file: the section of dynamic symbols, and that of their names.
    Dl_info library;
    dladdr(FindNext(reinterpret_cast<const void*>(&platform::TickMs)), &library);
    std::vector<char> bytes(std::filesystem::file_size(library.dli_fname));
    std::ifstream(library.dli_fname, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    const auto at = [&bytes](std::size_t offset, auto& out) { std::memcpy(&out, bytes.data() + offset, sizeof(out)); };
    ElfW(Ehdr) header;
    at(0, header);
    const auto getSection = [&](std::size_t index) {
        ElfW(Shdr) section;
        at(header.e_shoff + index * header.e_shentsize, section);
        return section;
    };
    std::vector<std::string> names;
    for (std::size_t index = 0; index < header.e_shnum; ++index) {
        const auto section = getSection(index);
        if (section.sh_type != SHT_DYNSYM)
            continue;
        const auto texts = getSection(section.sh_link);
        for (std::size_t offset = 0; offset < section.sh_size; offset += sizeof(ElfW(Sym))) {
            ElfW(Sym) symbol;
            at(section.sh_offset + offset, symbol);
            const std::string name = bytes.data() + texts.sh_offset + symbol.st_name;
            if (ELF64_ST_TYPE(symbol.st_info) == STT_FUNC && symbol.st_shndx != SHN_UNDEF &&
                name.compare(0, PLATFORM_PREFIX.size(), PLATFORM_PREFIX) == 0 &&
                !GetModules().program.Holds(dlsym(RTLD_DEFAULT, name.c_str())))
                names.push_back(name);
        }
    }
    return names;
}

Call::Call(const void* returnAddress)
    : m_isFromLibraries(++depth == 1 && IsInLibraries(returnAddress))
    , m_isStruck(m_isFromLibraries && FaultPlan::sGetKind() != FaultPlan::KIND::NONE)
{
    if (!m_isStruck)
        return;
    if (const auto draw = Draw(FAULT::CALL_LATE)) {
        if (draw.Below(4) != 0)
            sched_yield();
        else
            Real<&platform::SleepMs>()(1);
    }
}

Call::~Call()
{
    --depth;
}

FaultPlan::DRAW Call::Draw(FAULT fault) const
{
    if (!m_isStruck)
        return {};
    const FaultPlan::DRAW draw = FaultPlan::sDraw(fault);
    if (draw)
        FaultPlan::sCount(fault);
    return draw;
}

bool IsUndisturbed()
{
    return depth != 0;
}

Undisturbed::Undisturbed()
{
    ++depth;
}

Undisturbed::~Undisturbed()
{
    --depth;
}

} // namespace kqlib::test
