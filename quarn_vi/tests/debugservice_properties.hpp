// The four inherited properties, for every class that derives DebugService.
#pragma once

#include "tests/controllers.hpp"

#include <qn/debug_service.hpp>

namespace controllers {

/// A class's own properties after the four inherited ones.
inline std::vector<Member> withDebugServiceProperties(std::vector<Member> own) {
    std::vector<Member> all{{"EnabledBefore", "logical scalar", false, 0},
                            {"EnabledAfter", "logical scalar", false, 0},
                            {"EnabledGlobalScope", "logical scalar", false, 0},
                            {"FilterRegEx", "char", false, 0}};
    all.insert(all.end(), own.begin(), own.end());
    return all;
}

/// The inherited properties act on the service of this class, and the class is a DebugService.
inline void expectDebugServiceProperties(const char* shortName, QN::DebugService& service) {
    const Object object(shortName);
    ASSERT_EQ(object.cls().superclasses().size(), 1u);
    EXPECT_EQ(object.cls().superclasses()[0]->getFullName().str(), "internal.quarn.DebugService");
    object.set("EnabledBefore", true);
    EXPECT_TRUE(service.requestedBefore());
    object.set("EnabledBefore", false);
    object.set("EnabledAfter", true);
    EXPECT_TRUE(service.requestedAfter());
    object.set("EnabledAfter", false);
    object.set("EnabledGlobalScope", true);
    EXPECT_TRUE(service.requestedGlobalScope());
    object.set("EnabledGlobalScope", false);
    object.set("FilterRegEx", "fold");
    EXPECT_EQ(service.filter(), "fold");
    object.set("FilterRegEx", "");
    EXPECT_EQ(service.filter(), "");
    EXPECT_FALSE(service.requestedBefore() || service.requestedAfter() ||
                 service.requestedGlobalScope());
}

/// A logical property acts on one setting of a service that every object of the class shares.
template <class Read, class Write>
void expectSharedSwitch(const char* shortName, const char* property, Read read, Write write) {
    const Object a(shortName);
    const Object b(shortName);
    const bool old = read();
    const auto text = sample::text("on");
    for (const bool value : {true, false, true}) {
        a.set(property, value);
        EXPECT_EQ(read(), value) << property;
        EXPECT_EQ(b.flag(property), value) << property;
        expectWrongType(a, property, sample::arrayValue(text));
        EXPECT_EQ(read(), value) << property;
        write(!value); // behind the controllers' back
        EXPECT_EQ(a.flag(property), !value) << property;
    }
    write(old);
}

} // namespace controllers
