#include "fuzz/support/TableImage.h"

#include <bit>
#include <cstring>

namespace ZNORBFUZZ {

namespace {

static_assert(std::endian::native == std::endian::little, "the model reads the lowest byte first");

constexpr std::size_t imageSize = 8196;
constexpr std::size_t identifierWidth = 117;

/// From here on an image's count is what its bytes say.
constexpr unsigned arbitraryCount = 0xF0;

} // namespace

std::uint32_t TableModel::number(std::size_t offset, std::size_t width) const {
    std::uint32_t value = 0;
    for (std::size_t i = width; i > 0; --i) {
        value = value << 8U | static_cast<unsigned char>(m_image[offset + i - 1]);
    }
    return value;
}

void TableModel::setNumber(std::size_t offset, std::size_t width, std::uint32_t value) {
    for (std::size_t i = 0; i < width; ++i) {
        m_image[offset + i] = static_cast<char>(value >> 8U * i);
    }
}

void TableModel::setBytes(std::size_t offset, const std::string& bytes) {
    m_image.replace(offset, bytes.size(), bytes);
}

std::string TableModel::identifier(unsigned entry) const {
    const std::string field = m_image.substr(at(entry) + 1, identifierWidth);
    return field.substr(0, field.find('\0'));
}

unsigned TableModel::claim() {
    unsigned chosen = 0;
    while (chosen < bounded() && isInUse(chosen)) {
        ++chosen;
    }
    if (chosen == capacity) {
        return capacity;
    }
    if (chosen >= count()) {
        setNumber(0, 4, chosen + 1);
    }
    setNumber(at(chosen), 1, 1);
    setBytes(at(chosen) + 1, std::string(identifierWidth, '\0'));
    setNumber(at(chosen) + 120, 4, 0);
    setNumber(at(chosen) + 124, 2, 0);
    return chosen;
}

std::string TableModel::listing() const {
    std::string text;
    for (unsigned i = 0; i < bounded(); ++i) {
        text += std::string("Entry: ") + (i < 10 ? " " : "") + std::to_string(i) +
                ", Valid?: " + (isInUse(i) ? "Y" : "N") + ", ID: " + identifier(i) + "\r\n";
    }
    return text;
}

std::string takeImage(Input& input) {
    TableModel model(std::string(imageSize, static_cast<char>(input.byte())));
    const unsigned count = input.byte();
    if (count < arbitraryCount) {
        model.setNumber(0, 4, count % 10);
    }
    std::string image = model.image();
    for (unsigned patches = input.byte(); patches > 0 && !input.isEmpty(); --patches) {
        const std::size_t offset = input.word() % imageSize;
        const std::string_view bytes = input.take(std::min<std::size_t>(input.byte(), imageSize - offset));
        image.replace(offset, bytes.size(), bytes);
    }
    return image;
}

ZNORBRESPONDER::SharedVariables tableOf(const std::string& image) {
    ZNORBRESPONDER::SharedVariables table;
    std::memcpy(&table, image.data(), sizeof table);
    return table;
}

bool isSame(const ZNORBRESPONDER::SharedVariables& table, const TableModel& model) {
    return std::memcmp(&table, model.image().data(), sizeof table) == 0;
}

} // namespace ZNORBFUZZ
