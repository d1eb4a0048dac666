// The byte form of a compiled formula, all integers little-endian:
//
//   magic "EFRM" | u16 version | u32 source length | source bytes
//   u32 field count   | per field:   u16 length, name bytes (as first written)
//   u32 literal count | per literal: u8 kind (0 text, 1 number), u32 element count,
//                                    per element: u32 length + bytes, or an IEEE-754 double
//   u32 node count    | per node:    u8 op, u8 detail, u32 first, u32 count
//   u32 child count   | per child:   u32 node, u8 logic operator
//
// Deserialize trusts nothing: every length is checked against what is left of the buffer, every
// count against the smallest size its entries can take, and the node tree is validated as a whole.
#include <cstdint>
#include <cstring>

#include "Compiled.h"

namespace emu::formula {
namespace {

constexpr unsigned char kMagic[4] = {'E', 'F', 'R', 'M'};
constexpr uint16_t kVersion = 1;
constexpr uint8_t kTextLiteral = 0;
constexpr uint8_t kNumberLiteral = 1;

class Writer {
public:
    void Bytes(const void* data, size_t size) {
        const auto* bytes = static_cast<const unsigned char*>(data);
        out_.insert(out_.end(), bytes, bytes + size);
    }
    void U8(uint8_t value) { out_.push_back(value); }
    void U16(uint16_t value) { Little(value, 2); }
    void U32(uint32_t value) { Little(value, 4); }
    void F64(double value) {
        uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        Little(bits, 8);
    }
    void Text32(const std::string& text) {
        U32(static_cast<uint32_t>(text.size()));
        Bytes(text.data(), text.size());
    }
    std::vector<unsigned char> Take() { return std::move(out_); }

private:
    void Little(uint64_t value, int bytes) {
        for (int i = 0; i < bytes; ++i) out_.push_back(static_cast<unsigned char>(value >> (8 * i)));
    }
    std::vector<unsigned char> out_;
};

class Reader {
public:
    Reader(const unsigned char* bytes, size_t length) : bytes_(bytes), left_(bytes ? length : 0) {}

    size_t left() const { return left_; }
    bool Bytes(void* out, size_t size) {
        if (size > left_) return false;
        if (size > 0) std::memcpy(out, bytes_, size);
        Skip(size);
        return true;
    }
    bool Text(size_t size, std::string& out) {
        if (size > left_) return false;
        out.assign(reinterpret_cast<const char*>(bytes_), size);
        Skip(size);
        return true;
    }
    bool U8(uint8_t& value) { return Bytes(&value, 1); }
    bool U16(uint16_t& value) { return Little(value, 2); }
    bool U32(uint32_t& value) { return Little(value, 4); }
    bool F64(double& value) {
        uint64_t bits = 0;
        if (!Little(bits, 8)) return false;
        std::memcpy(&value, &bits, sizeof value);
        return true;
    }
    // A count of entries that each take at least `minimumSize` bytes, checked against what is left.
    bool Count(uint32_t& count, size_t minimumSize) { return U32(count) && count <= left_ / minimumSize; }

private:
    template <typename T>
    bool Little(T& value, int size) {
        if (static_cast<size_t>(size) > left_) return false;
        uint64_t result = 0;
        for (int i = 0; i < size; ++i) result |= uint64_t{bytes_[i]} << (8 * i);
        value = static_cast<T>(result);
        Skip(static_cast<size_t>(size));
        return true;
    }
    void Skip(size_t size) {
        bytes_ += size;
        left_ -= size;
    }
    const unsigned char* bytes_;
    size_t left_;
};

bool IsFieldName(const std::string& name) {
    if (name.empty() || name.size() > kMaxFieldNameLength || (name[0] >= '0' && name[0] <= '9')) return false;
    for (char c : name) {
        const bool allowed = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                             c == '_' || c == '$';
        if (!allowed) return false;
    }
    return true;
}

void WriteLiteral(Writer& writer, const Slot& literal) {
    const Value& value = literal.value;
    if (value.kind == Value::Kind::Number) {
        writer.U8(kNumberLiteral);
        writer.U32(static_cast<uint32_t>(value.numbers.size()));
        for (double number : value.numbers) writer.F64(number);
        return;
    }
    writer.U8(kTextLiteral);
    writer.U32(static_cast<uint32_t>(value.texts.size()));
    for (const std::string& text : value.texts) writer.Text32(text);
}

bool ReadHeader(Reader& reader, std::string& source) {
    unsigned char magic[sizeof kMagic];
    uint16_t version = 0;
    uint32_t sourceLength = 0;
    return reader.Bytes(magic, sizeof magic) && std::memcmp(magic, kMagic, sizeof magic) == 0 &&
           reader.U16(version) && version == kVersion && reader.U32(sourceLength) &&
           reader.Text(sourceLength, source);
}

bool ReadFields(Reader& reader, Program::Compiled& compiled) {
    uint32_t count = 0;
    if (!reader.Count(count, 2)) return false;
    for (uint32_t i = 0; i < count; ++i) {
        uint16_t length = 0;
        std::string name;
        if (!reader.U16(length) || !reader.Text(length, name) || !IsFieldName(name)) return false;
        if (InternField(compiled, name) != i) return false;  // the same field twice
    }
    return true;
}

bool ReadLiteral(Reader& reader, Slot& literal) {
    uint8_t kind = 0;
    uint32_t count = 0;
    if (!reader.U8(kind)) return false;
    if (kind == kNumberLiteral) {
        if (!reader.Count(count, 8) || count == 0) return false;
        literal.value.kind = Value::Kind::Number;
        literal.value.numbers.resize(count);
        for (double& number : literal.value.numbers) {
            if (!reader.F64(number)) return false;
        }
        return true;
    }
    if (kind != kTextLiteral || !reader.Count(count, 4) || count == 0) return false;
    literal.value.texts.resize(count);
    for (std::string& text : literal.value.texts) {
        uint32_t length = 0;
        if (!reader.U32(length) || !reader.Text(length, text)) return false;
    }
    FoldLiteral(literal);
    return true;
}

bool ReadLiterals(Reader& reader, Program::Compiled& compiled) {
    uint32_t count = 0;
    if (!reader.Count(count, 5)) return false;
    compiled.literals.resize(count);
    for (Slot& literal : compiled.literals) {
        if (!ReadLiteral(reader, literal)) return false;
    }
    return true;
}

bool ReadNodes(Reader& reader, Program::Compiled& compiled) {
    uint32_t count = 0;
    if (!reader.Count(count, 10)) return false;
    compiled.nodes.resize(count);
    for (Node& node : compiled.nodes) {
        uint8_t op = 0;
        if (!reader.U8(op) || op >= kNodeOpCount || !reader.U8(node.detail) || !reader.U32(node.first) ||
            !reader.U32(node.count))
            return false;
        node.op = static_cast<NodeOp>(op);
    }
    return true;
}

bool ReadChildren(Reader& reader, Program::Compiled& compiled) {
    uint32_t count = 0;
    if (!reader.Count(count, 5)) return false;
    compiled.children.resize(count);
    for (Child& child : compiled.children) {
        uint8_t op = 0;
        if (!reader.U32(child.node) || !reader.U8(op) || op > static_cast<uint8_t>(LogicOp::Or)) return false;
        child.op = static_cast<LogicOp>(op);
    }
    return true;
}

// Reads one compiled formula from the start of the buffer; `used` receives its length. The reader
// goes forward only, so no byte beyond the formula's end is looked at.
std::unique_ptr<Program::Compiled> ReadPrefix(const unsigned char* bytes, size_t length, size_t& used) {
    used = 0;
    // The magic byte by byte: a buffer that holds something else is left after its first wrong byte.
    for (size_t i = 0; i < sizeof kMagic; ++i) {
        if (!bytes || i >= length || bytes[i] != kMagic[i]) return nullptr;
    }
    Reader reader(bytes, length);
    auto compiled = std::make_unique<Program::Compiled>();
    const bool read = ReadHeader(reader, compiled->source) && ReadFields(reader, *compiled) &&
                      ReadLiterals(reader, *compiled) && ReadNodes(reader, *compiled) &&
                      ReadChildren(reader, *compiled);
    if (!read || !IsWellFormed(*compiled)) return nullptr;
    used = length - reader.left();
    return compiled;
}

std::unique_ptr<Program::Compiled> Read(const unsigned char* bytes, size_t length) {
    size_t used = 0;
    auto compiled = ReadPrefix(bytes, length, used);
    return compiled && used == length ? std::move(compiled) : nullptr;
}

}  // namespace

std::vector<unsigned char> Serialize(const Program& program) {
    const Program::Compiled& compiled = program.compiled();
    Writer writer;
    writer.Bytes(kMagic, sizeof kMagic);
    writer.U16(kVersion);
    writer.Text32(compiled.source);
    writer.U32(static_cast<uint32_t>(compiled.fieldNames.size()));
    for (const std::string& name : compiled.fieldNames) {
        writer.U16(static_cast<uint16_t>(name.size()));
        writer.Bytes(name.data(), name.size());
    }
    writer.U32(static_cast<uint32_t>(compiled.literals.size()));
    for (const Slot& literal : compiled.literals) WriteLiteral(writer, literal);
    writer.U32(static_cast<uint32_t>(compiled.nodes.size()));
    for (const Node& node : compiled.nodes) {
        writer.U8(static_cast<uint8_t>(node.op));
        writer.U8(node.detail);
        writer.U32(node.first);
        writer.U32(node.count);
    }
    writer.U32(static_cast<uint32_t>(compiled.children.size()));
    for (const Child& child : compiled.children) {
        writer.U32(child.node);
        writer.U8(static_cast<uint8_t>(child.op));
    }
    return writer.Take();
}

std::unique_ptr<Program> Deserialize(const unsigned char* bytes, size_t length) {
    auto compiled = Read(bytes, length);
    if (!compiled) return nullptr;
    return std::make_unique<Program>(std::move(compiled));
}

size_t CompiledLength(const unsigned char* bytes, size_t limit) {
    size_t used = 0;
    return ReadPrefix(bytes, limit, used) ? used : 0;
}

std::string SourceOf(const unsigned char* bytes, size_t length) {
    auto compiled = Read(bytes, length);
    return compiled ? std::move(compiled->source) : std::string();
}

}  // namespace emu::formula
