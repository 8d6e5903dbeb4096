// The order of virtual operations is part of the binary interface between host and module: a
// module built against these headers runs in every host that keeps the order. Each list below is
// that order; an operation that is moved, added in between or taken out fails here.
//
// Read from pointers to member functions, which under the Itanium C++ ABI hold the offset in the
// virtual table plus one.

#include "debug/registerable.hpp"
#include "framework/class_info.hpp"

#include <objsys/objsys.hpp>

#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>

namespace {

using objsys::COSClassDefinition;
using objsys::COSClassInfo;
using objsys::COSMethodInfo;
using objsys::COSPackageInfo;
using objsys::COSPropertyInfo;
using objsys::factory::impl::Getter;
using objsys::factory::impl::Setter;

constexpr int destructorSlots = 2; // the complete and the deleting destructor

/// The place of a virtual member function in its class's table; -1 when it is not virtual.
template <class Member>
int slotOf(Member member) {
    std::ptrdiff_t words[2];
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof words);
    if ((words[0] & 1) == 0)
        return -1;
    return static_cast<int>((words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)));
}

class BinaryInterface : public testing::Test {
protected:
    void SetUp() override {
#ifndef __x86_64__
        GTEST_SKIP() << "pointers to member functions look different on this processor";
#endif
    }

    /// The next operation of the table under test.
    template <class Member>
    void next(const char* what, Member member) {
        EXPECT_EQ(slotOf(member), slot_) << what;
        ++slot_;
    }
    void nextIsDestructor() {
        slot_ += destructorSlots;
    }

private:
    int slot_ = 0;
};

#define NEXT(MEMBER) next(#MEMBER, &MEMBER)

TEST_F(BinaryInterface, ClassDescription) {
    nextIsDestructor();
    NEXT(COSClassInfo::getName);
    NEXT(COSClassInfo::getDescription);
    NEXT(COSClassInfo::getDetailedDescription);
    NEXT(COSClassInfo::getAccess);
    NEXT(COSClassInfo::defineClass);
    NEXT(COSClassInfo::getDefaultInstance);
    NEXT(COSClassInfo::destroyInstance);
    NEXT(COSClassInfo::updateInstance);
    NEXT(COSClassInfo::hasNativeInstances);
    NEXT(COSClassInfo::isHidden);
    NEXT(COSClassInfo::isFullNameDisplayed);
    NEXT(COSClassInfo::isPropertyNameReservedByThisClass);
    NEXT(COSClassInfo::canOtherClassContainThisClass);
    NEXT(COSClassInfo::canThisClassContainOtherClass);
    NEXT(COSClassInfo::isHandleClass);
    NEXT(COSClassInfo::isHandleCompatible);
    NEXT(COSClassInfo::isEnumeration);
    NEXT(COSClassInfo::getConnectAccess);
    NEXT(COSClassInfo::getConnectivity);
    NEXT(COSClassInfo::areChildrenSaved);
    NEXT(COSClassInfo::isAbstract);
    NEXT(COSClassInfo::useClassDefaultsOnLoad);
    NEXT(COSClassInfo::isSealed);
    NEXT(COSClassInfo::isPropertyTruncationAllowed);
    NEXT(COSClassInfo::isConstructedOnLoad);
    NEXT(COSClassInfo::arePropertiesCaseInsensitive);
    NEXT(COSClassInfo::hasNonConvertingConstructor);
    NEXT(COSClassInfo::isInstanceLeaf);
    NEXT(COSClassInfo::isDestructible);
    NEXT(COSClassInfo::isLocked);
    NEXT(COSClassInfo::attemptToLoadProperty);
    NEXT(COSClassInfo::attemptToLoadMethod);
    NEXT(COSClassInfo::attemptToLoadEvent);
    NEXT(COSClassInfo::instanceLoaded);
    NEXT(COSClassInfo::customSave);
    NEXT(COSClassInfo::customLoad);
    NEXT(COSClassInfo::getModule);
    NEXT(COSClassInfo::areClassFunctionsAllowed);
    NEXT(COSClassInfo::areExtensionMethodsAllowed);
    NEXT(COSClassInfo::usesRootRecords);
    NEXT(COSClassInfo::doEventsHaveSeparateNamespace);
    NEXT(COSClassInfo::doesInexactPropertyNameIssueWarning);
    NEXT(COSClassInfo::usesCustomChildrenList);
    NEXT(COSClassInfo::getArrayNature);
    NEXT(COSClassInfo::getChildrenOfInstance);
    NEXT(COSClassInfo::classIsAbstract);
    NEXT(COSClassInfo::allowInstanceUpdates);
}

TEST_F(BinaryInterface, PackageDescription) {
    nextIsDestructor();
    NEXT(COSPackageInfo::getName);
    NEXT(COSPackageInfo::getDescription);
    NEXT(COSPackageInfo::getDetailedDescription);
    NEXT(COSPackageInfo::attemptToLoadSubPackage);
    NEXT(COSPackageInfo::attemptToLoadClass);
    NEXT(COSPackageInfo::attemptToLoadFunction);
    NEXT(COSPackageInfo::attemptToLoadType);
    NEXT(COSPackageInfo::getMethodSelector);
    NEXT(COSPackageInfo::registerClasses);
    NEXT(COSPackageInfo::isDestructible);
    NEXT(COSPackageInfo::isLocked);
}

TEST_F(BinaryInterface, Getter) {
    NEXT(Getter::getValue);
    NEXT(Getter::getDataType);
    nextIsDestructor();
    NEXT(Getter::forward);
    NEXT(Getter::getInterfaces);
    NEXT(Getter::canContainInterfaces);
}

TEST_F(BinaryInterface, Setter) {
    NEXT(Setter::setValue);
    NEXT(Setter::getDataType);
    nextIsDestructor();
}

TEST_F(BinaryInterface, MethodDescription) {
    nextIsDestructor();
    NEXT(COSMethodInfo::getName);
    NEXT(COSMethodInfo::getAttributes);
    NEXT(COSMethodInfo::getDescription);
    NEXT(COSMethodInfo::getSignature);
    NEXT(COSMethodInfo::isConstructor);
    NEXT(COSMethodInfo::invoke);
}

TEST_F(BinaryInterface, PropertyDescription) {
    nextIsDestructor();
    NEXT(COSPropertyInfo::getName);
    NEXT(COSPropertyInfo::getGetter);
    NEXT(COSPropertyInfo::getSetter);
    NEXT(COSPropertyInfo::getAttributes);
}

TEST_F(BinaryInterface, ClassDefinitionSink) {
    nextIsDestructor();
    NEXT(COSClassDefinition::getClassName);
    NEXT(COSClassDefinition::getFullClassName);
    NEXT(COSClassDefinition::addSuperclass);
    NEXT(COSClassDefinition::addMethod);
    NEXT(COSClassDefinition::addProperty);
}

TEST_F(BinaryInterface, Registerable) {
    nextIsDestructor();
    NEXT(quarn_vi::debug::Registerable::service);
    EXPECT_EQ(slotOf(&quarn_vi::debug::Registerable::enabled), -1);
    EXPECT_EQ(slotOf(&quarn_vi::debug::Registerable::setEnabled), -1);
    EXPECT_EQ(sizeof(quarn_vi::debug::Registerable), sizeof(objsys::factory::full::Wrappable));
}

// A package description holds no data, and a descriptor exactly its two texts.
TEST_F(BinaryInterface, SizesOfDescriptions) {
    EXPECT_EQ(sizeof(COSClassInfo), sizeof(void*));
    EXPECT_EQ(sizeof(COSPackageInfo), sizeof(void*));
    EXPECT_EQ(sizeof(objsys::factory::ObjsysFactoryClassInfo),
              sizeof(void*) + 2 * sizeof(std::string));
}

} // namespace
