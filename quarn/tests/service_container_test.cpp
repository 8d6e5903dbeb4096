// Registration of services: membership, order, walking while services come and go.
#include <qn/assertion.hpp>
#include <qn/default_services.hpp>
#include <qn/transform_run.hpp>
#include <ts/debug_log.hpp>

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using QN::Service;
using QN::ServiceContainer;

namespace {

std::string lastAssertion;

void rememberAssertion(const char*, int, const char* message) {
    lastAssertion = message;
}

class Counting : public Service {
public:
    int comings = 0;
    int goings = 0;
    void added() override { ++comings; }
    void removed() override { ++goings; }
    void sleep(bool idle) { setIdle(idle); }
};

std::vector<Service*> membersOf(ServiceContainer& container) {
    std::vector<Service*> members;
    container.forEach([&](Service& service) { members.push_back(&service); });
    return members;
}

} // namespace

TEST(ServiceContainer, KnowsItsMembers) {
    ServiceContainer container;
    Counting a;
    Counting b;
    EXPECT_TRUE(container.empty());
    EXPECT_FALSE(container.isRegistered(&a));
    EXPECT_FALSE(container.isRegistered(nullptr));
    container.addService(&a);
    EXPECT_TRUE(container.isRegistered(&a));
    EXPECT_FALSE(container.isRegistered(&b));
    EXPECT_EQ(a.container(), &container);
    container.removeService(&b);
    EXPECT_EQ(b.goings, 0);
    container.removeService(&a);
    EXPECT_FALSE(container.isRegistered(&a));
    EXPECT_EQ(a.container(), nullptr);
    EXPECT_TRUE(container.empty());
}

TEST(ServiceContainer, KnowsWhetherOneIsAwakeByItself) {
    ServiceContainer container;
    EXPECT_EQ(container.onlyAwake(), nullptr);
    Counting a;
    Counting b;
    container.addService(&a);
    EXPECT_EQ(container.onlyAwake(), &a);
    container.addService(&b);
    EXPECT_EQ(container.onlyAwake(), nullptr);
    b.sleep(true);
    EXPECT_EQ(container.onlyAwake(), &a);
    EXPECT_TRUE(container.holds(&b));
    container.forEach([&](Service& service) {
        container.removeService(&service);
        EXPECT_FALSE(container.holds(&service));
        EXPECT_EQ(container.onlyAwake(), nullptr);
    });
    EXPECT_EQ(container.onlyAwake(), nullptr);
    EXPECT_FALSE(container.holds(nullptr));
}

TEST(ServiceContainer, AddingTwiceAddsOnce) {
    ServiceContainer container;
    Counting a;
    container.addService(&a);
    container.addService(&a);
    EXPECT_EQ(container.size(), 1U);
    EXPECT_EQ(a.comings, 1);
    container.removeService(&a);
    container.removeService(&a);
    EXPECT_EQ(a.goings, 1);
}

TEST(ServiceContainer, ADestroyedServiceTakesItselfOut) {
    ServiceContainer container;
    auto a = std::make_unique<Counting>();
    Counting b;
    container.addService(a.get());
    container.addService(&b);
    a.reset();
    EXPECT_EQ(membersOf(container), std::vector<Service*>{&b});
}

TEST(ServiceContainer, ADestroyedContainerLetsItsServicesGo) {
    Counting a;
    {
        ServiceContainer container;
        container.addService(&a);
    }
    EXPECT_EQ(a.container(), nullptr);
}

TEST(ServiceContainer, AServiceBelongsToOneContainer) {
    ServiceContainer first;
    ServiceContainer second;
    Counting a;
    first.addService(&a);
    second.addService(&a);
    EXPECT_TRUE(first.empty());
    EXPECT_TRUE(second.isRegistered(&a));
    EXPECT_EQ(a.goings, 1);
}

TEST(ServiceContainer, WalksInOrderOfRegistrationAndBack) {
    ServiceContainer container;
    Counting a, b, c;
    container.addService(&b);
    container.addService(&a);
    container.addService(&c);
    EXPECT_EQ(membersOf(container), (std::vector<Service*>{&b, &a, &c}));
    std::vector<Service*> back;
    container.forEachReversed([&](Service& service) { back.push_back(&service); });
    EXPECT_EQ(back, (std::vector<Service*>{&c, &a, &b}));
}

TEST(ServiceContainer, ServicesMayLeaveAndComeDuringAWalk) {
    ServiceContainer container;
    auto a = std::make_unique<Counting>();
    Counting b, c, d;
    container.addService(a.get());
    container.addService(&b);
    container.addService(&c);
    std::vector<Service*> seen;
    container.forEach([&](Service& service) {
        seen.push_back(&service);
        if (&service == &b) {
            a.reset();
            container.removeService(&b);
            container.removeService(&c);
            container.addService(&d);
        }
    });
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_EQ(seen[1], &b);
    EXPECT_EQ(seen[2], &d);
    EXPECT_EQ(membersOf(container), std::vector<Service*>{&d});
}

TEST(ServiceContainer, AnIdleServiceStaysRegisteredAndIsNotVisited) {
    ServiceContainer container;
    Counting a, b;
    a.sleep(true);
    container.addService(&a);
    EXPECT_TRUE(container.isRegistered(&a));
    EXPECT_EQ(a.comings, 1);
    EXPECT_EQ(container.size(), 1U);
    EXPECT_FALSE(container.empty());
    EXPECT_TRUE(container.isQuiet());
    container.addService(&b);
    EXPECT_FALSE(container.isQuiet());
    EXPECT_EQ(membersOf(container), std::vector<Service*>{&b});
    a.sleep(false);
    EXPECT_EQ(membersOf(container), (std::vector<Service*>{&b, &a}));
    // During a walk, one that falls asleep is passed over, also if it wakes up again at once.
    std::vector<Service*> seen;
    container.forEach([&](Service& service) {
        seen.push_back(&service);
        if (seen.size() == 1) {
            a.sleep(true);
            b.sleep(true);
            b.sleep(false);
        }
    });
    EXPECT_EQ(seen, std::vector<Service*>{&b});
    EXPECT_EQ(membersOf(container), std::vector<Service*>{&b});
    EXPECT_EQ(container.size(), 2U);
    container.removeService(&b);
    EXPECT_TRUE(container.isQuiet());
    container.removeService(&a);
    EXPECT_EQ(a.goings, 1);
    EXPECT_TRUE(container.empty());
}

TEST(ServiceContainer, ADestroyedContainerLetsIdleServicesGo) {
    Counting a;
    a.sleep(true);
    {
        ServiceContainer container;
        container.addService(&a);
        EXPECT_EQ(a.container(), &container);
    }
    EXPECT_EQ(a.container(), nullptr);
}

TEST(ServiceContainer, GenerationTellsOfEveryChange) {
    ServiceContainer container;
    Counting a;
    const auto start = container.generation();
    container.addService(&a);
    const auto added = container.generation();
    EXPECT_NE(added, start);
    container.noteChange();
    const auto noted = container.generation();
    EXPECT_NE(noted, added);
    container.removeService(&a);
    EXPECT_NE(container.generation(), noted);
}

TEST(ServiceContainer, ANullServiceIsAFailedAssertion) {
    const auto old = QN::setAssertionHandler(rememberAssertion);
    ServiceContainer container;
    lastAssertion.clear();
    container.addService(nullptr);
    EXPECT_EQ(lastAssertion, "service != 0");
    EXPECT_TRUE(container.empty());
    QN::setAssertionHandler(old);
}

TEST(DefaultServices, OneContainerAndOneDebugLogForTheProcess) {
    auto& services = QN::DefaultServices::debugServices();
    EXPECT_EQ(&services, &QN::DefaultServices::debugServices());
    EXPECT_EQ(&services.debugLog(), &QN::DefaultServices::debugServices().debugLog());
    Counting a;
    services.addService(&a);
    EXPECT_TRUE(services.isRegistered(&a));
    services.removeService(&a);
}
