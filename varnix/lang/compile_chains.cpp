// Names, calls, member accesses, indices, and assignments to elements and members.
#include "lang/compiler_state.hpp"
#include "lang/parser.hpp"
#include "value/errors.hpp"

namespace varnix {

namespace {

std::uint16_t narrow(std::size_t value) {
    return static_cast<std::uint16_t>(value);
}

bool isColon(const Expression& expression) {
    return expression.kind == ExpressionKind::Colon;
}

} // namespace

void FunctionCompiler::callLike(const Expression& node, std::size_t requested, Register result) {
    if (node.kind == ExpressionKind::Name)
        nameAlone(static_cast<const NameExpression&>(node), requested, result);
    else
        chain(static_cast<const ChainExpression&>(node), requested, result);
}

void FunctionCompiler::nameAlone(const NameExpression& name, std::size_t requested,
                                 Register result) {
    if (requested == 1 && isVariable(name.slot))
        emit(name.place, Op::Copy, result, name.slot);
    else
        callSite(name.place, name, nullptr, requested, result);
}

Register FunctionCompiler::argumentWindow(const ExpressionList& arguments, Place place) {
    const Register window = take(place, arguments.size());
    for (std::size_t i = 0; i < arguments.size(); ++i)
        into(*arguments[i], narrow(window + i));
    return window;
}

/// name(arguments), or name alone when `arguments` is null.
void FunctionCompiler::callSite(Place place, const NameExpression& name,
                                const ExpressionList* arguments, std::size_t requested,
                                Register result) {
    const Temporaries scope(*this);
    CallSite site;
    site.name = name.name;
    site.slot = name.slot;
    site.written = arguments != nullptr;
    site.result = result;
    site.requested = narrow(requested);
    if (arguments != nullptr) {
        site.arguments = narrow(arguments->size());
        site.window = argumentWindow(*arguments, place);
    }
    code_.calls.push_back(site);
    emitWide(place, Op::Call, 0, code_.calls.size() - 1);
}

std::size_t FunctionCompiler::memberSite(objsys::COSNameID name) {
    MemberSite site;
    site.name = name;
    code_.members.push_back(site);
    return code_.members.size() - 1;
}

void FunctionCompiler::chain(const ChainExpression& node, std::size_t requested, Register result) {
    const Temporaries scope(*this);
    const auto& links = node.links;
    std::size_t at = 0; // the link to compile next
    // The value of what is compiled so far lies in `base`: the root's variable, or this temporary.
    std::optional<Register> partial;
    const auto resultOf = [&](std::size_t linksTaken) {
        if (at + linksTaken == links.size())
            return result;
        if (!partial)
            partial = take(node.place);
        return *partial;
    };
    const auto requestedOf = [&](std::size_t linksTaken) {
        return at + linksTaken == links.size() ? requested : 1;
    };

    Register base = 0;
    const auto* const name = node.root->kind == ExpressionKind::Name
                                 ? static_cast<const NameExpression*>(node.root)
                                 : nullptr;
    if (name != nullptr && links[0].kind == LinkKind::Call) {
        base = resultOf(1);
        callSite(name->place, *name, &links[0].arguments, requestedOf(1), base);
        at = 1;
    } else if (name != nullptr && links[0].kind == LinkKind::Member && !isVariable(name->slot)) {
        NamePathSite site;
        site.slot = name->slot;
        site.names.push_back(name->name);
        std::size_t taken = 0;
        for (; taken < links.size() && links[taken].kind == LinkKind::Member; ++taken)
            site.names.push_back(links[taken].name);
        const ExpressionList* arguments = nullptr;
        if (taken < links.size() && links[taken].kind == LinkKind::Call)
            arguments = &links[taken++].arguments;
        base = resultOf(taken);
        const Temporaries window(*this);
        site.written = arguments != nullptr;
        site.result = base;
        site.requested = narrow(requestedOf(taken));
        if (arguments != nullptr) {
            site.arguments = narrow(arguments->size());
            site.window = argumentWindow(*arguments, node.place);
        }
        code_.paths.push_back(std::move(site));
        emitWide(links[taken - 1].place, Op::CallPath, 0, code_.paths.size() - 1);
        at = taken;
    } else {
        base = operand(*node.root);
        if (isTemporary(base))
            partial = base;
    }

    while (at < links.size()) {
        const Link& link = links[at];
        const bool called = at + 1 < links.size() && links[at + 1].kind == LinkKind::Call;
        const std::size_t taken = link.kind == LinkKind::Member && called ? 2 : 1;
        Register next = resultOf(taken);
        const std::size_t wanted = requestedOf(taken);
        const Temporaries window(*this);
        switch (link.kind) {
        case LinkKind::Member: {
            if (!called && wanted == 1) {
                emit(link.place, Op::GetMember, next, base, memberSite(link.name));
                break;
            }
            MemberSite site;
            site.name = link.name;
            site.base = base;
            site.written = called;
            site.result = next;
            site.requested = narrow(wanted);
            if (called) {
                site.arguments = narrow(links[at + 1].arguments.size());
                site.window = argumentWindow(links[at + 1].arguments, link.place);
            }
            code_.members.push_back(site);
            emitWide(link.place, Op::CallMember, 0, code_.members.size() - 1);
            break;
        }
        case LinkKind::Call: {
            CallSite site;
            site.written = true;
            site.result = next;
            site.requested = narrow(wanted);
            site.arguments = narrow(link.arguments.size());
            site.window = take(link.place); // the function value, its arguments behind it
            emit(link.place, isTemporary(base) ? Op::Move : Op::Copy, site.window, base);
            argumentWindow(link.arguments, link.place);
            code_.calls.push_back(site);
            emitWide(link.place, Op::CallValue, 0, code_.calls.size() - 1);
            break;
        }
        case LinkKind::Index:
        case LinkKind::Brace:
            if (wanted > 1)
                raiseSyntax(source_, link.place,
                            "expected a call on the right of '=': only a function gives more than "
                            "one value");
            if (next == noSlot) { // a statement: looked at, then dropped
                next = take(link.place);
                index(link, base, next);
                emitWide(link.place, Op::Clear, next, 1);
            } else {
                index(link, base, next);
            }
            break;
        }
        base = next;
        at += taken;
    }
    // Drop what the steps in between gave: a handle there would keep its object alive.
    if (partial && *partial != result)
        emitWide(node.place, Op::Clear, *partial, 1);
}

// ---- indices

void FunctionCompiler::index(const Link& link, Register base, Register result) {
    IndexContext context;
    context.base = base;
    const ExpressionList& arguments = link.arguments;
    if (arguments.size() == 1 && !isColon(*arguments[0])) {
        const auto number = constantDouble(*arguments[0]);
        const std::size_t constant = number ? doubleConstant(*number) : 0;
        if (link.kind == LinkKind::Index && number && constant <= 0xFFFF)
            emit(link.place, Op::IndexConstant, result, base, constant);
        else
            emit(link.place, link.kind == LinkKind::Index ? Op::Index : Op::Brace, result, base,
                 oneIndex(*arguments[0], context));
        return;
    }
    const Indices indices = indexWindow(arguments, context, link.place);
    if (link.kind == LinkKind::Index && indices.count == 2 && indices.colons == 0) {
        emit(link.place, Op::IndexTwo, result, base, indices.window);
        return;
    }
    code_.indices.push_back({.base = base,
                             .window = indices.window,
                             .result = result,
                             .count = indices.count,
                             .colons = indices.colons,
                             .brace = link.kind == LinkKind::Brace});
    emitWide(link.place, Op::IndexSite, 0, code_.indices.size() - 1);
}

Register FunctionCompiler::oneIndex(const Expression& expression, IndexContext& context) {
    context.which = 0;
    context.total = 1;
    IndexContext* const outer = std::exchange(context_, &context);
    const Register result = operand(expression);
    context_ = outer;
    return result;
}

FunctionCompiler::Indices FunctionCompiler::indexWindow(const ExpressionList& arguments,
                                                        IndexContext& context, Place place) {
    Indices result;
    result.count = static_cast<std::uint8_t>(arguments.size());
    result.window = take(place, arguments.size());
    IndexContext* const outer = std::exchange(context_, &context);
    context.total = arguments.size();
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        context.which = i;
        if (isColon(*arguments[i]))
            result.colons = static_cast<std::uint8_t>(result.colons | (1u << i));
        else
            into(*arguments[i], narrow(result.window + i));
    }
    context_ = outer;
    return result;
}

void FunctionCompiler::end(Place place, Register target) {
    const IndexContext& context = *context_;
    const std::size_t position = context.which | (context.total << 8);
    if (context.path == nullptr) {
        emit(place, context.isTarget ? Op::EndOfTarget : Op::EndOf, target, context.base, position);
        return;
    }
    // Dropped at once: a second reference would make the assignment copy.
    const Temporaries scope(*this);
    const Register value = readPath(*context.path, place);
    emit(place, Op::EndOf, target, value, position);
    emitWide(place, Op::Clear, value, 1);
}

/// Reads what lies at the end of a path whose indices are in their registers.
Register FunctionCompiler::readPath(const PathSite& path, Place place) {
    const Register value = take(place);
    Register base = path.root;
    for (const PathSite::Step& step : path.steps) {
        if (step.kind == LinkKind::Member) {
            emit(place, Op::GetMember, value, base, memberSite(step.name));
        } else {
            code_.indices.push_back({.base = base,
                                     .window = step.window,
                                     .result = value,
                                     .count = step.count,
                                     .colons = step.colons,
                                     .brace = step.kind == LinkKind::Brace});
            emitWide(place, Op::IndexSite, 0, code_.indices.size() - 1);
        }
        base = value;
    }
    return value;
}

// ---- assignments

void FunctionCompiler::store(const Target& target, Register value) {
    const Temporaries scope(*this);
    if (target.links.size() == 1 && target.links[0].kind == LinkKind::Index)
        return storeElement(target, value);
    if (target.links.size() == 1 && target.links[0].kind == LinkKind::Member) {
        emit(target.links[0].place, Op::SetMember, target.root->slot, value,
             memberSite(target.links[0].name));
        return;
    }
    storePath(target, value);
}

void FunctionCompiler::storeElement(const Target& target, Register value) {
    const Link& link = target.links[0];
    const ExpressionList& arguments = link.arguments;
    const Slot variable = target.root->slot;
    IndexContext context;
    context.base = variable;
    context.isTarget = true;
    if (arguments.size() == 1 && !isColon(*arguments[0])) {
        const auto number = constantDouble(*arguments[0]);
        const std::size_t constant = number ? doubleConstant(*number) : 0;
        if (number && constant <= 0xFFFF)
            emit(link.place, Op::StoreIndexConstant, variable, constant, value);
        else
            emit(link.place, Op::StoreIndex, variable, oneIndex(*arguments[0], context), value);
        return;
    }
    if (arguments.size() == 2 && !isColon(*arguments[0]) && !isColon(*arguments[1])) {
        const Indices indices = indexWindow(arguments, context, link.place);
        emit(link.place, Op::StoreIndexTwo, variable, indices.window, value);
        return;
    }
    storePath(target, value);
}

void FunctionCompiler::storePath(const Target& target, Register value) {
    if (target.links.size() > maxNesting) // the machine follows it by recursion
        raiseAt(id::tooDeep, source_, target.links[maxNesting].place,
                "an assignment that reaches too deep");
    PathSite site;
    site.root = target.root->slot;
    site.value = value;
    for (const Link& link : target.links) {
        PathSite::Step step;
        step.kind = link.kind;
        step.name = link.name;
        if (link.kind != LinkKind::Member) {
            IndexContext context;
            context.base = site.root;
            context.isTarget = true;
            context.path = site.steps.empty() ? nullptr : &site;
            const Indices indices = indexWindow(link.arguments, context, link.place);
            step.window = indices.window;
            step.count = indices.count;
            step.colons = indices.colons;
        }
        site.steps.push_back(step);
    }
    code_.stores.push_back(std::move(site));
    emitWide(target.links.back().place, Op::StorePath, 0, code_.stores.size() - 1);
}

} // namespace varnix
