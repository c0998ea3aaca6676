#pragma once

#include "fuzz/support/Input.h"
#include "responder/table/SharedVariables.h"

#include <string>

namespace ZNORBFUZZ {

/// The table as plain bytes, read and written at the offsets that its users rely on.
class TableModel {
public:
    static constexpr unsigned capacity = 64;

    explicit TableModel(std::string image) : m_image(std::move(image)) {}

    [[nodiscard]] const std::string& image() const { return m_image; }
    [[nodiscard]] std::uint32_t count() const { return number(0, 4); }
    [[nodiscard]] unsigned bounded() const { return count() < capacity ? count() : capacity; }
    [[nodiscard]] bool isInUse(unsigned entry) const { return m_image[at(entry)] != 0; }
    [[nodiscard]] unsigned port(unsigned entry) const { return number(at(entry) + 124, 2); }

    /// Up to its zero byte or the field's end.
    [[nodiscard]] std::string identifier(unsigned entry) const;

    /// The number of the entry that is claimed, or `capacity` when there is none.
    unsigned claim();

    /// What the log then has of the table.
    [[nodiscard]] std::string listing() const;

    void setNumber(std::size_t offset, std::size_t width, std::uint32_t value);
    void setBytes(std::size_t offset, const std::string& bytes);

    static std::size_t at(unsigned entry) { return 4 + 128UL * entry; }

private:
    [[nodiscard]] std::uint32_t number(std::size_t offset, std::size_t width) const;

    std::string m_image;
};

/// An arbitrary image from a few bytes: a byte that fills it, a byte with the number of patches, then for
/// each patch its offset (two bytes, taken modulo the size), its length (one byte) and its bytes.
std::string takeImage(Input& input);

/// The image as a table, and whether a table is the model's, byte by byte.
ZNORBRESPONDER::SharedVariables tableOf(const std::string& image);
bool isSame(const ZNORBRESPONDER::SharedVariables& table, const TableModel& model);

} // namespace ZNORBFUZZ
