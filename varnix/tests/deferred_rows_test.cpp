// Rows of objects whose references are counted late: whatever happens to a row or to its objects,
// they live exactly as long as if each reference had been counted at once.
#include "tests/object_sample.hpp"
#include "value/array.hpp"
#include "value/index.hpp"

#include <objsys/object_array.hpp>

#include <gtest/gtest.h>
#include <optional>
#include <vector>

namespace {

using namespace sample;
using varnix::assignIndex;
using varnix::Index;
using varnix::indexValue;

class DeferredRows : public ObjectTest {
protected:
    static constexpr std::size_t many = 20;

    DeferredRows() {
        for (std::size_t i = 0; i < many; ++i) {
            handles_.push_back(make("Thing"));
            natives_.push_back(instanceOf(handles_.back())->getNativeObject(nameOf("Thing")));
        }
    }

    /// A row of the natives, as a module's getter makes it.
    Value row() const {
        hvArray* const array = omCreateOBJSYSMatrix(1, natives_.size(), nameOf("Thing"));
        BindingRegistry::announceRow(array, natives_.data(), natives_.size(), nameOf("Thing"));
        omSetClassOfHeterogeneousArray(array);
        return Value::fromArray(array);
    }
    static Value one(std::size_t i) { return Value::ofDouble(static_cast<double>(i)); }
    static Value read(const Value& x, std::size_t i) {
        return indexValue(x, std::vector{Index{false, one(i)}});
    }
    int alive() const { return Store::living; }
    std::uint32_t count(std::size_t i) const { return handles_[i].array()->refs; }

    PackageTree::Mark before_ = PackageTree::mark();
    SampleInfo& info_ = addConstructible("Thing");
    std::vector<Value> handles_;
    std::vector<Wrappable*> natives_;
};

TEST_F(DeferredRows, HoldTheHandlesOfTheirObjects) {
    const Value x = row();
    ASSERT_EQ(x.count(), many);
    for (std::size_t i = 0; i < many; ++i)
        EXPECT_EQ(omGetArrayElement(x.array(), i), instanceOf(handles_[i]));
    EXPECT_EQ(x.array()->objectClass, &classOf("Thing"));
}

TEST_F(DeferredRows, KeepTheirObjectsAlive) {
    {
        const Value x = row();
        handles_.clear();
        EXPECT_EQ(alive(), int{many});
        EXPECT_TRUE(instanceOf(read(x, 1))->isValid());
        EXPECT_TRUE(instanceOf(read(x, many))->isValid());
    }
    EXPECT_EQ(alive(), 0);
    EXPECT_EQ(info_.destroyed, int{many});
}

TEST_F(DeferredRows, LeaveTheCountsAsTheyWere) {
    row();
    EXPECT_EQ(count(0), 1u);
    std::optional<Value> x = row();
    const Value element = read(*x, 3);
    handles_.erase(handles_.begin() + 2); // held by the row and by the element now
    EXPECT_EQ(alive(), int{many});
    x.reset();
    EXPECT_EQ(element.array()->refs, 1u);
    EXPECT_EQ(count(0), 1u);
}

TEST_F(DeferredRows, MayOutliveEachOther) {
    Value first = row();
    const Value second = row();
    handles_.clear();
    first = Value();
    EXPECT_EQ(alive(), int{many});
    EXPECT_TRUE(instanceOf(read(second, many))->isValid());
}

TEST_F(DeferredRows, MoreThanTheHostNotes) {
    std::vector<Value> rows;
    for (int i = 0; i < 200; ++i)
        rows.push_back(row());
    handles_.clear();
    EXPECT_EQ(alive(), int{many});
    for (std::size_t i = 1; i < rows.size(); i += 2)
        rows[i] = Value();
    EXPECT_EQ(alive(), int{many});
    const Value last = rows.front();
    rows.clear();
    EXPECT_EQ(alive(), int{many});
    EXPECT_EQ(omGetArrayElement(last.array(), 0)->handle()->refs, 1u);
}

TEST_F(DeferredRows, CanBeWrittenTo) {
    Value x = row();
    const Value other = make("Thing");
    assignIndex(x, std::vector{Index{false, one(2)}}, other);
    EXPECT_EQ(omGetArrayElement(x.array(), 1), instanceOf(other));
    EXPECT_EQ(count(1), 1u);
    EXPECT_EQ(other.array()->refs, 2u);
    omSetArrayElement(x.array(), 0, nullptr);
    EXPECT_EQ(count(0), 1u);

    Value fresh = row();
    omSetArrayElement(fresh.array(), 0, instanceOf(other));
    EXPECT_EQ(count(0), 1u);
    EXPECT_EQ(count(2), 3u); // both rows were written to, and so count
    EXPECT_EQ(other.array()->refs, 3u);
}

TEST_F(DeferredRows, CanGrow) {
    Value x = row();
    const Value other = make("Thing");
    assignIndex(x, std::vector{Index{false, one(many + 1)}}, other);
    EXPECT_EQ(x.count(), many + 1);
    handles_.clear();
    EXPECT_EQ(alive(), int{many} + 1);
    x = Value();
    EXPECT_EQ(alive(), 1);
}

TEST_F(DeferredRows, CopiesAreRowsOfTheirOwn) {
    Value x = row();
    Value copy = x;
    assignIndex(copy, std::vector{Index{false, one(1)}}, make("Thing"));
    handles_.clear();
    EXPECT_EQ(alive(), int{many} + 1);
    copy = Value();
    EXPECT_EQ(alive(), int{many});
    x = Value();
    EXPECT_EQ(alive(), 0);
}

TEST_F(DeferredRows, SurviveTheEndOfTheirObjects) {
    const Value x = row();
    objsys::deleteInstance(instanceOf(handles_[4]));
    EXPECT_FALSE(omGetArrayElement(x.array(), 4)->isValid());
    delete natives_[5]; // the native object dies first
    EXPECT_FALSE(omGetArrayElement(x.array(), 5)->isValid());
    handles_.clear();
    EXPECT_FALSE(omGetArrayElement(x.array(), 4)->isValid());
    EXPECT_TRUE(omGetArrayElement(x.array(), 6)->isValid());
}

TEST_F(DeferredRows, SurviveTheirClass) {
    const Value x = row();
    handles_.resize(3);
    PackageTree::withdrawSince(before_);
    EXPECT_EQ(alive(), 0);
    EXPECT_FALSE(omGetArrayElement(x.array(), 0)->isValid());
    EXPECT_FALSE(omGetArrayElement(x.array(), many - 1)->isValid());
}

TEST_F(DeferredRows, ObjectsWithoutHandlesGetThem) {
    for (std::size_t i = 0; i < many; i += 3)
        natives_[i] = new Store;
    {
        const Value x = row();
        for (std::size_t i = 0; i < many; ++i)
            EXPECT_EQ(omGetArrayElement(x.array(), i), BindingRegistry::instanceOf(natives_[i]));
        handles_.clear();
        EXPECT_GE(alive(), int{many});
    }
    EXPECT_EQ(alive(), 0);
}

TEST_F(DeferredRows, NullObjectsAreEmptyElements) {
    natives_[7] = nullptr;
    const Value x = row();
    EXPECT_EQ(omGetArrayElement(x.array(), 7), nullptr);
    EXPECT_EQ(omGetArrayElement(x.array(), 8), instanceOf(handles_[8]));
}

} // namespace
