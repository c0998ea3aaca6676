#pragma once

#include "tests/support/Files.h"

#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ZNORBTEST {

/// A function of an executable; its code lies in that.
struct Function {
    std::string name;
    std::uint64_t address;
    std::string_view code;
    bool isGlobal;
};

/// A 64-bit ELF file. Everything that it says about itself is checked against its length.
class Executable {
public:
    explicit Executable(const std::string& path) : m_bytes(readFile(path)) {
        m_header = at<Elf64_Ehdr>(0);
        EXPECT_EQ(std::memcmp(m_header.e_ident, ELFMAG, SELFMAG), 0) << path;
        EXPECT_EQ(m_header.e_ident[EI_CLASS], ELFCLASS64) << path;
        for (std::size_t i = 0; i < m_header.e_phnum; ++i) {
            m_segments.push_back(at<Elf64_Phdr>(m_header.e_phoff + i * sizeof(Elf64_Phdr)));
        }
        readDynamic();
        readSections();
    }

    [[nodiscard]] const Elf64_Ehdr& header() const { return m_header; }
    [[nodiscard]] const std::vector<Elf64_Phdr>& segments() const { return m_segments; }

    [[nodiscard]] std::vector<Elf64_Phdr> segments(Elf64_Word type) const {
        std::vector<Elf64_Phdr> result;
        std::copy_if(m_segments.begin(), m_segments.end(), std::back_inserter(result),
                     [type](const Elf64_Phdr& segment) { return segment.p_type == type; });
        return result;
    }

    /// Entries of the dynamic section by their tags.
    [[nodiscard]] const std::map<Elf64_Sxword, Elf64_Xword>& dynamic() const { return m_dynamic; }
    [[nodiscard]] Elf64_Xword dynamic(Elf64_Sxword tag) const {
        const auto entry = m_dynamic.find(tag);
        return entry != m_dynamic.end() ? entry->second : 0;
    }

    /// What is in memory when it runs and is not code.
    [[nodiscard]] const std::vector<Elf64_Shdr>& dataSections() const { return m_dataSections; }

    /// The addresses of what the system's own classes have by this prefix: "_ZTV" for their tables of virtual
    /// functions, "_ZTS" for their names.
    [[nodiscard]] std::vector<std::uint64_t> ownObjects(std::string_view prefix) const {
        std::vector<std::uint64_t> addresses;
        for (const auto& [address, name] : m_ownObjects) {
            if (name.compare(0, prefix.size(), prefix) == 0) {
                addresses.push_back(address);
            }
        }
        return addresses;
    }

    /// The system's own functions: those of its namespaces.
    [[nodiscard]] const std::vector<Function>& ownFunctions() const { return m_ownFunctions; }

    /// Functions that it has or wants from a shared library, by their addresses, 0 for the latter.
    [[nodiscard]] const std::multimap<std::uint64_t, std::string>& functions() const { return m_functions; }

    [[nodiscard]] static bool isWithin(std::uint64_t address, const Elf64_Phdr& segment) {
        return address >= segment.p_vaddr && address - segment.p_vaddr < segment.p_memsz;
    }

    /// The addresses that code calls directly.
    [[nodiscard]] static std::set<std::uint64_t> callsOf(const Function& function) {
        constexpr char call = '\xe8';
        constexpr std::size_t length = 5;
        std::set<std::uint64_t> targets;
        for (std::size_t i = 0; i + length <= function.code.size(); ++i) {
            if (function.code[i] == call) {
                std::int32_t distance = 0;
                std::memcpy(&distance, function.code.data() + i + 1, sizeof distance);
                (void)targets.insert(function.address + i + length + static_cast<std::uint64_t>(distance));
            }
        }
        return targets;
    }

private:
    template <typename Record>
    [[nodiscard]] Record at(std::uint64_t offset) const {
        Record record = {};
        EXPECT_LE(offset + sizeof record, m_bytes.size());
        if (offset + sizeof record <= m_bytes.size()) {
            std::memcpy(&record, m_bytes.data() + offset, sizeof record);
        }
        return record;
    }

    void readDynamic() {
        for (const Elf64_Phdr& segment : segments(PT_DYNAMIC)) {
            for (std::uint64_t offset = 0; offset < segment.p_filesz; offset += sizeof(Elf64_Dyn)) {
                const auto entry = at<Elf64_Dyn>(segment.p_offset + offset);
                if (entry.d_tag == DT_NULL) {
                    return;
                }
                m_dynamic[entry.d_tag] = entry.d_un.d_val;
            }
        }
    }

    void readSections() {
        for (std::size_t i = 0; i < m_header.e_shnum; ++i) {
            const auto section = at<Elf64_Shdr>(m_header.e_shoff + i * sizeof(Elf64_Shdr));
            if ((section.sh_flags & SHF_ALLOC) != 0 && (section.sh_flags & SHF_EXECINSTR) == 0 &&
                section.sh_size != 0) {
                m_dataSections.push_back(section);
            }
            if (section.sh_type == SHT_SYMTAB) {
                const auto names = at<Elf64_Shdr>(m_header.e_shoff + section.sh_link * sizeof(Elf64_Shdr));
                for (std::uint64_t offset = 0; offset < section.sh_size; offset += sizeof(Elf64_Sym)) {
                    readSymbol(at<Elf64_Sym>(section.sh_offset + offset), names.sh_offset);
                }
            }
        }
    }

    void readSymbol(const Elf64_Sym& symbol, std::uint64_t names) {
        const int type = ELF64_ST_TYPE(symbol.st_info);
        const std::string name =
            m_bytes.c_str() + std::min<std::uint64_t>(names + symbol.st_name, m_bytes.size());
        if (type == STT_OBJECT && symbol.st_shndx != SHN_UNDEF && isOwn(name)) {
            (void)m_ownObjects.emplace(symbol.st_value, name);
        }
        if (type != STT_FUNC && type != STT_GNU_IFUNC) {
            return;
        }
        (void)m_functions.emplace(symbol.st_value, name);
        if (symbol.st_size != 0 && isOwn(name)) {
            m_ownFunctions.push_back({name, symbol.st_value, codeAt(symbol.st_value, symbol.st_size),
                                      ELF64_ST_BIND(symbol.st_info) == STB_GLOBAL});
        }
    }

    static bool isOwn(const std::string& name) {
        return name.find("14ZNORBRESPONDER") != std::string::npos ||
               name.find("9ORBCOMMON") != std::string::npos || name.find("6Common") != std::string::npos;
    }

    [[nodiscard]] std::string_view codeAt(std::uint64_t address, std::uint64_t size) const {
        for (const Elf64_Phdr& segment : m_segments) {
            const bool isInside = segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
                                  address + size <= segment.p_vaddr + segment.p_filesz;
            const std::uint64_t offset = segment.p_offset + address - segment.p_vaddr;
            if (isInside && offset + size <= m_bytes.size()) {
                return std::string_view(m_bytes).substr(offset, size);
            }
        }
        return {};
    }

    std::string m_bytes;
    Elf64_Ehdr m_header = {};
    std::vector<Elf64_Phdr> m_segments;
    std::map<Elf64_Sxword, Elf64_Xword> m_dynamic;
    std::multimap<std::uint64_t, std::string> m_functions;
    std::vector<Function> m_ownFunctions;
    std::vector<Elf64_Shdr> m_dataSections;
    std::multimap<std::uint64_t, std::string> m_ownObjects;
};

} // namespace ZNORBTEST
