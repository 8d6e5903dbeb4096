// Units, and the code as text.
#include "lang/bytecode.hpp"

#include "value/format.hpp"

#include <algorithm>
#include <array>
#include <fmt/format.h>

namespace varnix {

Code::Code() : serial([] {
        static std::uint64_t made = 0;
        return ++made;
    }()) {}

const Code* Unit::find(objsys::COSNameID function) const {
    const auto found = std::find_if(functions.begin(), functions.end(),
                                    [&](const auto& code) { return code->name == function; });
    return found == functions.end() ? nullptr : found->get();
}

const char* nameOf(Op op) {
    static constexpr std::array names = {
#define X(name) #name,
        VARNIX_OPERATIONS(X)
#undef X
    };
    return names[static_cast<std::size_t>(op)];
}

namespace {

/// What the operands of an instruction are, for the text form.
enum class Operands : std::uint8_t { Registers, Wide, Jump, Constant, ConstantB, ConstantC };

Operands operandsOf(Op op) {
    switch (op) {
    case Op::LoadConstant:
        return Operands::Constant;
    case Op::Clear:
    case Op::Return:
    case Op::MakeFunction:
    case Op::MakeHandle:
    case Op::IndexSite:
    case Op::StorePath:
    case Op::CallMember:
    case Op::Call:
    case Op::CallValue:
    case Op::CallPath:
        return Operands::Wide;
    case Op::Jump:
    case Op::JumpBack:
    case Op::JumpIfTrue:
    case Op::JumpIfFalse:
    case Op::ForRange:
    case Op::ForEach:
        return Operands::Jump;
    case Op::AddConstant:
    case Op::SubtractConstant:
    case Op::MultiplyConstant:
    case Op::DivideConstant:
    case Op::IndexConstant:
        return Operands::ConstantC;
    case Op::StoreIndexConstant:
    case Op::TestEqualConstant:
    case Op::TestNotEqualConstant:
    case Op::TestLessConstant:
    case Op::TestLessEqualConstant:
    case Op::TestGreaterConstant:
    case Op::TestGreaterEqualConstant:
        return Operands::ConstantB;
    default:
        return Operands::Registers;
    }
}

std::string shapeText(const Code& code, const CallShape& shape) {
    const auto name = [&](std::uint16_t r) {
        return r == noSlot             ? std::string("-")
               : r < code.names.size() ? code.names[r].str()
                                       : fmt::format("r{}", r);
    };
    return fmt::format(" ({} from {}) -> {} x{}", shape.arguments, name(shape.window),
                       name(shape.result), shape.requested);
}

} // namespace

std::string disassemble(const Code& code) {
    std::string text;
    const auto reg = [&](std::size_t r) {
        return r < code.names.size() ? code.names[r].str() : fmt::format("r{}", r);
    };
    for (std::size_t at = 0; at < code.instructions.size(); ++at) {
        const Instruction& i = code.instructions[at];
        text += fmt::format("{:4} {}", at, nameOf(i.op));
        switch (operandsOf(i.op)) {
        case Operands::Constant:
            text += fmt::format(" {} {}", reg(i.a), formatBrief(code.constants[i.wide()]));
            break;
        case Operands::ConstantB:
            text += fmt::format(" {} {} {}", reg(i.a), formatBrief(code.constants[i.b]), i.c);
            break;
        case Operands::ConstantC:
            text += fmt::format(" {} {} {}", reg(i.a), reg(i.b), formatBrief(code.constants[i.c]));
            break;
        case Operands::Jump:
            text += fmt::format(" {} @{}", reg(i.a), static_cast<std::int64_t>(at) + i.offset());
            break;
        case Operands::Wide:
            if (i.op == Op::Call)
                text +=
                    " " + code.calls[i.wide()].name.str() + shapeText(code, code.calls[i.wide()]);
            else if (i.op == Op::CallValue)
                text += shapeText(code, code.calls[i.wide()]);
            else if (i.op == Op::CallMember)
                text += fmt::format(" {}.{}", reg(code.members[i.wide()].base),
                                    code.members[i.wide()].name.str()) +
                        shapeText(code, code.members[i.wide()]);
            else
                text += fmt::format(" {} {}", reg(i.a), i.wide());
            break;
        case Operands::Registers:
            if (i.op == Op::GetMember)
                text += fmt::format(" {} {}.{}", reg(i.a), reg(i.b), code.members[i.c].name.str());
            else if (i.op == Op::SetMember)
                text += fmt::format(" {}.{} {}", reg(i.a), code.members[i.c].name.str(), reg(i.b));
            else
                text += fmt::format(" {} {} {}", reg(i.a), reg(i.b), i.c);
            break;
        }
        text += '\n';
    }
    return text;
}

} // namespace varnix
