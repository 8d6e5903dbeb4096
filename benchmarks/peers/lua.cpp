// The hand-written Lua 5.4 peer: userdata with a metatable, as good as we can make it.
//
// What makes it fast: one table from member names to methods and accessors, held as an upvalue; the
// metatable is locked, so __index and __newindex can only be reached through a userdata of ours and
// need no check of it; methods check it by comparing metatables, not by name; the native object in
// place inside the userdata; handles found again by an integer index into a weak table, kept in the
// native object; generational collection, because what the rows make dies young; from C++, names
// and methods are values made beforehand.
#include "statistics.hpp"
#include "subject.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <lua.hpp>
#include <new>
#include <stdexcept>
#include <vector>

namespace bench {
namespace {

/// The block of a userdata. Handles of objects that somebody else owns have no `storage`.
struct Handle {
    Statistics* native; ///< null once the native object has died
    bool owns;          ///< the native object is in `storage` and dies with the handle
    int cacheIndex;     ///< where the weak table holds the userdata
    alignas(Statistics) std::array<std::byte, sizeof(Statistics)> storage;
};

constexpr std::size_t borrowingSize = offsetof(Handle, storage);

/// How a name is served when it is not a method. Both expect the value stack of __index and
/// __newindex; a getter pushes its result, a setter finds its value at index 3.
struct Accessor {
    const char* name;
    void (*get)(lua_State*, Statistics&);
    void (*set)(lua_State*, Statistics&); ///< null: read only
};

/// The upvalues that every function of the binding has, in this order.
enum Upvalue : int { membersUpvalue = 1, metatableUpvalue, cacheUpvalue, stateUpvalue };

/// What the binding remembers beside its Lua tables: free places of the weak table.
struct Binding {
    std::vector<int> freePlaces;
    int places = 0;
};

Binding& bindingOf(lua_State* lua) {
    return *static_cast<Binding*>(lua_touserdata(lua, lua_upvalueindex(stateUpvalue)));
}

void invalidate(void* handle) {
    static_cast<Handle*>(handle)->native = nullptr;
}

/// Gives the userdata on top of the stack its metatable and its place in the weak table.
void bind(lua_State* lua, Handle* handle, Statistics* native, bool owns) {
    Binding& binding = bindingOf(lua);
    if (binding.freePlaces.empty()) {
        handle->cacheIndex = ++binding.places;
    } else {
        handle->cacheIndex = binding.freePlaces.back();
        binding.freePlaces.pop_back();
    }
    handle->native = native;
    handle->owns = owns;
    native->slot = {handle, invalidate};
    lua_pushvalue(lua, lua_upvalueindex(metatableUpvalue));
    lua_setmetatable(lua, -2);
    lua_pushvalue(lua, -1);
    lua_rawseti(lua, lua_upvalueindex(cacheUpvalue), handle->cacheIndex);
}

/// Pushes the one userdata of `native`; nil for null.
void pushNative(lua_State* lua, Statistics* native) {
    if (native == nullptr) {
        lua_pushnil(lua);
        return;
    }
    if (native->slot.handle != nullptr) [[likely]] {
        const auto* const handle = static_cast<Handle*>(native->slot.handle);
        if (lua_rawgeti(lua, lua_upvalueindex(cacheUpvalue), handle->cacheIndex) != LUA_TNIL) {
            return;
        }
        // Unreachable but not collected yet: the old userdata lets go, a new one takes over.
        lua_pop(lua, 1);
        native->slot.invalidate(native->slot.handle);
    }
    bind(lua, static_cast<Handle*>(lua_newuserdatauv(lua, borrowingSize, 0)), native, false);
}

int construct(lua_State* lua) {
    auto* const handle = static_cast<Handle*>(lua_newuserdatauv(lua, sizeof(Handle), 0));
    bind(lua, handle, new (handle->storage.data()) Statistics, true);
    return 1;
}

int collect(lua_State* lua) {
    auto* const handle = static_cast<Handle*>(lua_touserdata(lua, 1));
    if (handle->native != nullptr) {
        handle->native->slot = {};
        if (handle->owns) {
            handle->native->~Statistics();
        }
        handle->native = nullptr;
    }
    bindingOf(lua).freePlaces.push_back(handle->cacheIndex);
    return 0;
}

Statistics& nativeOf(lua_State* lua) {
    Statistics* const native = static_cast<Handle*>(lua_touserdata(lua, 1))->native;
    if (native == nullptr) [[unlikely]] {
        luaL_error(lua, "the native object is gone");
    }
    return *native;
}

/// The native object of a method's first argument, which can be any value.
Statistics& selfOf(lua_State* lua) {
    if (lua_touserdata(lua, 1) == nullptr || lua_getmetatable(lua, 1) == 0 ||
        lua_rawequal(lua, -1, lua_upvalueindex(metatableUpvalue)) == 0) [[unlikely]] {
        luaL_argerror(lua, 1, "a Statistics object is needed");
    }
    return nativeOf(lua);
}

void pushText(lua_State* lua, std::string_view text) {
    lua_pushlstring(lua, text.data(), text.size());
}

constexpr Accessor accessors[] = {
    {"Enabled", [](lua_State* lua, Statistics& native) { lua_pushboolean(lua, native.enabled()); },
     [](lua_State* lua, Statistics& native) {
         luaL_checktype(lua, 3, LUA_TBOOLEAN);
         native.setEnabled(lua_toboolean(lua, 3) != 0);
     }},
    {"Threshold",
     [](lua_State* lua, Statistics& native) { lua_pushinteger(lua, native.threshold()); },
     [](lua_State* lua, Statistics& native) {
         const lua_Integer value = luaL_checkinteger(lua, 3);
         luaL_argcheck(lua,
                       value >= std::numeric_limits<std::int32_t>::min() &&
                           value <= std::numeric_limits<std::int32_t>::max(),
                       3, "Threshold is a 32-bit integer");
         native.setThreshold(static_cast<std::int32_t>(value));
     }},
    {"Count",
     [](lua_State* lua, Statistics& native) {
         lua_pushinteger(lua, static_cast<lua_Integer>(native.count()));
     },
     [](lua_State* lua, Statistics& native) {
         native.setCount(static_cast<std::uint64_t>(luaL_checkinteger(lua, 3)));
     }},
    {"OutputFormat",
     [](lua_State* lua, Statistics& native) { pushText(lua, native.outputFormat()); },
     [](lua_State* lua, Statistics& native) {
         luaL_checktype(lua, 3, LUA_TSTRING);
         std::size_t size = 0;
         const char* const text = lua_tolstring(lua, 3, &size);
         native.setOutputFormat({text, size});
     }},
    {"Fields",
     [](lua_State* lua, Statistics& native) {
         const std::vector<std::string>& fields = native.fields();
         lua_createtable(lua, static_cast<int>(fields.size()), 0);
         lua_Integer index = 0;
         for (const std::string& field : fields) {
             pushText(lua, field);
             lua_rawseti(lua, -2, ++index);
         }
     },
     nullptr},
    {"Child", [](lua_State* lua, Statistics& native) { pushNative(lua, native.child()); }, nullptr},
    {"Violations",
     [](lua_State* lua, Statistics& native) {
         const std::vector<Statistics*>& violations = native.violations();
         lua_createtable(lua, static_cast<int>(violations.size()), 0);
         lua_Integer index = 0;
         for (Statistics* violation : violations) {
             pushNative(lua, violation);
             lua_rawseti(lua, -2, ++index);
         }
     },
     nullptr},
};

constexpr luaL_Reg methods[] = {
    {"reset",
     [](lua_State* lua) {
         selfOf(lua).reset();
         return 0;
     }},
    {"hello",
     [](lua_State* lua) {
         const std::string text = selfOf(lua).hello();
         pushText(lua, text);
         return 1;
     }},
};

int index(lua_State* lua) {
    lua_rawget(lua, lua_upvalueindex(membersUpvalue)); // the key is on top
    const auto* const accessor = static_cast<const Accessor*>(lua_touserdata(lua, -1));
    if (accessor == nullptr) {
        return 1; // a method, or nil
    }
    accessor->get(lua, nativeOf(lua));
    return 1;
}

int newIndex(lua_State* lua) {
    lua_pushvalue(lua, 2);
    lua_rawget(lua, lua_upvalueindex(membersUpvalue));
    const auto* const accessor = static_cast<const Accessor*>(lua_touserdata(lua, -1));
    if (accessor == nullptr || accessor->set == nullptr) {
        return luaL_error(lua, "no property that can be set");
    }
    accessor->set(lua, nativeOf(lua));
    return 0;
}

/// The loops as a Lua programmer writes them when speed matters, and a check of what the binding
/// does with right and wrong values.
constexpr const char* scriptSource = R"lua(
local Statistics = ...
local loops = {}
function loops.empty_turn(s, n) for _ = 1, n do end end
function loops.get_bool(s, n) for _ = 1, n do local x = s.Enabled end end
function loops.set_bool(s, n) for _ = 1, n do s.Enabled = true end end
function loops.get_int32(s, n) for _ = 1, n do local x = s.Threshold end end
function loops.set_int32(s, n) for _ = 1, n do s.Threshold = 4711 end end
function loops.get_uint64(s, n) for _ = 1, n do local x = s.Count end end
function loops.set_uint64(s, n) for _ = 1, n do s.Count = 123456789 end end
function loops.get_string(s, n) for _ = 1, n do local x = s.OutputFormat end end
function loops.set_string(s, n) for _ = 1, n do s.OutputFormat = "QNEL text" end end
function loops.get_strings(s, n) for _ = 1, n do local x = s.Fields end end
function loops.get_object(s, n) for _ = 1, n do local x = s.Child end end
function loops.void_call(s, n) for _ = 1, n do s:reset() end end
function loops.string_call(s, n) for _ = 1, n do local x = s:hello() end end
function loops.construct(s, n) local make = Statistics for _ = 1, n do local x = make() end end
function loops.get_objects(s, n) for _ = 1, n do local x = s.Violations end end
function loops.verify(s)
  assert(s.Enabled == true)
  s.Enabled = false
  assert(s.Enabled == false)
  s.Threshold = -7
  assert(s.Threshold == -7)
  assert(not pcall(function() s.Threshold = 1 << 40 end))
  assert(not pcall(function() s.Threshold = {} end))
  s.Count = 1 << 40
  assert(s.Count == 1 << 40)
  s.OutputFormat = "dot"
  assert(s.OutputFormat == "dot")
  assert(not pcall(function() s.OutputFormat = 1 end))
  assert(not pcall(function() s.Fields = {} end))
  assert(#s.Fields == 10 and s.Fields[5] == "severity")
  assert(s.Child == s.Child and s.Child ~= s)
  assert(#s.Violations == 3 and s.Violations[2] == s.Violations[2])
  assert(s.Violations[1] ~= s.Violations[2])
  assert(s:reset() == nil)
  assert(s:hello() == "(-: hello :-)")
  assert(not pcall(s.hello, {}))
  local made = Statistics()
  assert(made.Enabled == false and made.Child == nil and #made.Violations == 0)
end
return loops
)lua";

/// A value kept in the registry, so that a loop finds it again.
class LuaRef {
public:
    /// Takes the value on top of the stack.
    explicit LuaRef(std::shared_ptr<lua_State> lua)
        : lua_(std::move(lua)), reference_(luaL_ref(lua_.get(), LUA_REGISTRYINDEX)) {}
    LuaRef(const LuaRef&) = delete;
    LuaRef& operator=(const LuaRef&) = delete;
    ~LuaRef() { luaL_unref(lua_.get(), LUA_REGISTRYINDEX, reference_); }

    void push() const { lua_rawgeti(lua_.get(), LUA_REGISTRYINDEX, reference_); }

private:
    std::shared_ptr<lua_State> lua_;
    int reference_;
};

/// What a loop works on, in this order so that the handles go first.
struct LuaObject {
    std::shared_ptr<Statistics> native;
    std::shared_ptr<LuaRef> handle;
    std::shared_ptr<LuaRef> held; ///< keeps the handles of its live objects alive
};

class Lua : public Subject {
public:
    Lua();
    std::string name() const override { return "Lua"; }
    void verify() override;
    Loop fromNative(Operation operation) override;
    Loop fromScript(Operation operation) override;

private:
    lua_State* lua() const { return lua_.get(); }
    std::shared_ptr<LuaRef> pop() const { return std::make_shared<LuaRef>(lua_); }
    void pushFunction(lua_CFunction function) const;
    std::shared_ptr<LuaRef> wrap(Statistics* native) const;
    LuaObject objectFor(Operation operation) const;
    std::shared_ptr<LuaRef> loopFunction(const char* name) const;

    /// A loop whose body finds the object at index 1, `second` (a name, a method) at index 2 and
    /// `third`, if there is one, at index 3, and leaves the stack as it was.
    template <class Body>
    Loop loop(Operation operation, std::shared_ptr<LuaRef> second, Body body,
              std::shared_ptr<LuaRef> third = nullptr) const;

    Binding binding_; // outlives the state, whose closing collects the userdata
    std::shared_ptr<lua_State> lua_;
    std::shared_ptr<LuaRef> members_;
    std::shared_ptr<LuaRef> metatable_;
    std::shared_ptr<LuaRef> cache_;
    std::shared_ptr<LuaRef> constructor_;
    std::shared_ptr<LuaRef> wrap_;
    std::shared_ptr<LuaRef> loops_;
};

void check(lua_State* lua, int status) {
    if (status != LUA_OK) {
        const std::string message = luaL_tolstring(lua, -1, nullptr);
        lua_settop(lua, 0);
        throw std::runtime_error("Lua: " + message);
    }
}

Lua::Lua() : lua_(luaL_newstate(), lua_close) {
    if (lua() == nullptr) {
        throw std::bad_alloc();
    }
    lua_gc(lua(), LUA_GCGEN, 0, 0); // what the rows make dies young
    luaL_requiref(lua(), LUA_GNAME, luaopen_base, 1);
    lua_settop(lua(), 0);

    lua_newtable(lua());
    members_ = pop();
    lua_newtable(lua());
    metatable_ = pop();
    lua_newtable(lua());
    lua_newtable(lua());
    lua_pushliteral(lua(), "v");
    lua_setfield(lua(), -2, "__mode");
    lua_setmetatable(lua(), -2);
    cache_ = pop();

    members_->push();
    for (const Accessor& accessor : accessors) {
        lua_pushlightuserdata(lua(), const_cast<Accessor*>(&accessor));
        lua_setfield(lua(), -2, accessor.name);
    }
    for (const luaL_Reg& method : methods) {
        pushFunction(method.func);
        lua_setfield(lua(), -2, method.name);
    }
    metatable_->push();
    pushFunction(index);
    lua_setfield(lua(), -2, "__index");
    pushFunction(newIndex);
    lua_setfield(lua(), -2, "__newindex");
    pushFunction(collect);
    lua_setfield(lua(), -2, "__gc");
    lua_pushliteral(lua(), "locked");
    lua_setfield(lua(), -2, "__metatable");
    lua_settop(lua(), 0);

    pushFunction(construct);
    constructor_ = pop();
    pushFunction([](lua_State* state) {
        pushNative(state, static_cast<Statistics*>(lua_touserdata(state, 1)));
        return 1;
    });
    wrap_ = pop();

    check(lua(), luaL_loadstring(lua(), scriptSource));
    constructor_->push();
    check(lua(), lua_pcall(lua(), 1, 1, 0));
    loops_ = pop();
}

void Lua::pushFunction(lua_CFunction function) const {
    members_->push();
    metatable_->push();
    cache_->push();
    lua_pushlightuserdata(lua(), const_cast<Binding*>(&binding_));
    lua_pushcclosure(lua(), function, 4);
}

std::shared_ptr<LuaRef> Lua::wrap(Statistics* native) const {
    wrap_->push();
    lua_pushlightuserdata(lua(), native);
    check(lua(), lua_pcall(lua(), 1, 1, 0));
    return pop();
}

LuaObject Lua::objectFor(Operation operation) const {
    LuaObject object;
    object.native = makeStatistics(liveObjects(operation));
    object.handle = wrap(object.native.get());
    object.handle->push();
    lua_getfield(lua(), -1, liveObjects(operation) != 0 ? "Violations" : "Child");
    object.held = pop();
    lua_settop(lua(), 0);
    return object;
}

std::shared_ptr<LuaRef> Lua::loopFunction(const char* name) const {
    loops_->push();
    lua_getfield(lua(), -1, name);
    std::shared_ptr<LuaRef> function = pop();
    lua_settop(lua(), 0);
    return function;
}

void Lua::verify() {
    const std::shared_ptr<Statistics> native = makeStatistics(3);
    const std::shared_ptr<LuaRef> handle = wrap(native.get());
    loopFunction("verify")->push();
    handle->push();
    check(lua(), lua_pcall(lua(), 1, 0, 0));
    require(!native->enabled() && native->threshold() == -7 && native->outputFormat() == "dot" &&
                native->resets() == 1,
            *this, "a value that a script set does not arrive");
}

Loop Lua::fromScript(Operation operation) {
    return [lua = lua_, object = objectFor(operation),
            function = loopFunction(scriptFunction(operation))](std::size_t count) {
        function->push();
        object.handle->push();
        lua_pushinteger(lua.get(), static_cast<lua_Integer>(count));
        check(lua.get(), lua_pcall(lua.get(), 2, 0, 0));
    };
}

template <class Body>
Loop Lua::loop(Operation operation, std::shared_ptr<LuaRef> second, Body body,
               std::shared_ptr<LuaRef> third) const {
    return [lua = lua_, object = objectFor(operation), second, third, body](std::size_t count) {
        lua_State* const state = lua.get();
        object.handle->push();
        second->push();
        if (third) {
            third->push();
        }
        for (; count != 0; --count) {
            body(state);
        }
        lua_settop(state, 0);
    };
}

Loop Lua::fromNative(Operation operation) {
    const auto get = [&](const char* name, auto use) {
        lua_pushstring(lua(), name);
        return loop(operation, pop(), [use](lua_State* state) {
            lua_pushvalue(state, 2);
            lua_gettable(state, 1);
            use(state);
            lua_pop(state, 1);
        });
    };
    const auto set = [&](const char* name, auto push, std::shared_ptr<LuaRef> third = nullptr) {
        lua_pushstring(lua(), name);
        return loop(
            operation, pop(),
            [push](lua_State* state) {
                lua_pushvalue(state, 2);
                push(state);
                lua_settable(state, 1);
            },
            third);
    };
    const auto call = [&](const char* name, int results, auto use) {
        members_->push();
        lua_getfield(lua(), -1, name);
        const std::shared_ptr<LuaRef> method = pop();
        lua_settop(lua(), 0);
        return loop(operation, method, [results, use](lua_State* state) {
            lua_pushvalue(state, 2);
            lua_pushvalue(state, 1);
            lua_call(state, 1, results);
            use(state);
            lua_settop(state, 2);
        });
    };
    const auto useText = [](lua_State* state) {
        std::size_t size = 0;
        keep(lua_tolstring(state, -1, &size));
        keep(size);
    };
    const auto useTable = [](lua_State* state) { keep(lua_rawlen(state, -1)); };
    const auto useInteger = [](lua_State* state) { keep(lua_tointegerx(state, -1, nullptr)); };

    switch (operation) {
    case Operation::getBool:
        return get("Enabled", [](lua_State* state) { keep(lua_toboolean(state, -1)); });
    case Operation::setBool:
        return set("Enabled", [](lua_State* state) { lua_pushboolean(state, 1); });
    case Operation::getInt32:
        return get("Threshold", useInteger);
    case Operation::setInt32:
        return set("Threshold", [](lua_State* state) { lua_pushinteger(state, thresholdValue); });
    case Operation::getUint64:
        return get("Count", useInteger);
    case Operation::setUint64:
        return set("Count", [](lua_State* state) { lua_pushinteger(state, countValue); });
    case Operation::getString:
        return get("OutputFormat", useText);
    case Operation::setString:
        pushText(lua(), formatValue); // index 3 of the loop's stack
        return set(
            "OutputFormat", [](lua_State* state) { lua_pushvalue(state, 3); }, pop());
    case Operation::setNewString:
        return set("OutputFormat", [](lua_State* state) { pushText(state, formatValue); });
    case Operation::getStrings:
        return get("Fields", useTable);
    case Operation::getObject:
        return get("Child", [](lua_State* state) { keep(lua_touserdata(state, -1)); });
    case Operation::voidCall:
        return call("reset", 0, [](lua_State*) {});
    case Operation::stringCall:
        return call("hello", 1, useText);
    case Operation::construct:
        return loop(operation, constructor_, [](lua_State* state) {
            lua_pushvalue(state, 2);
            lua_call(state, 0, 1);
            lua_pop(state, 1);
        });
    case Operation::getObjects1000:
    case Operation::getObjects100000:
        return get("Violations", useTable);
    case Operation::emptyLoop:
        return {};
    }
    return {};
}

} // namespace

std::unique_ptr<Subject> makeLua() {
    return std::make_unique<Lua>();
}

} // namespace bench
