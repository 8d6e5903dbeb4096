// Texts, cells of texts, objects and rows of objects on their way through the door, by property
// of a published class: what the host makes of a value and what the module makes of it together.

#include "tests/sample.hpp"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace sample;
using std::string_literals::operator""s;
using testing::ElementsAre;
using testing::IsEmpty;

/// A native object that keeps what it is given and counts assignments.
class Note : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Note";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Note> declare(definition);
        declare.property<&Note::title, &Note::setTitle>("Title");
        declare.property<&Note::lines, &Note::setLines>("Lines");
    }

    std::string title() const { return title_; }
    void setTitle(std::string title) {
        title_ = std::move(title);
        ++assignments_;
    }
    std::vector<std::string> lines() { return lines_; }
    void setLines(const std::vector<std::string>& lines) {
        lines_ = lines;
        ++assignments_;
    }

    std::string title_ = "unchanged";
    std::vector<std::string> lines_{"un", "changed"};
    int assignments_ = 0;
};

class NoteProperties : public testing::Test {
protected:
    NoteProperties() : handle_(handleOf(&note_)) {}

    Array get(const char* name) {
        const COSValue value = property(published<Note>(), name).get(instanceIn(handle_));
        EXPECT_EQ(value.type().str(), name == "Title"s ? "char" : "cell");
        return Array(value.asArray());
    }
    void set(const char* name, const COSValue& value) {
        property(published<Note>(), name).set(instanceIn(handle_), value);
    }
    void set(const char* name, const Array& value) { set(name, arrayValue(value)); }
    /// Straight to the setter, past the host's check.
    void setUnchecked(const char* name, hvArray* value, const char* type) {
        property(published<Note>(), name)
            .setter->setValue(instanceIn(handle_), COSValue::ofArray(value, COSNameID(type)));
    }

    Note note_;
    Array handle_;
};

TEST_F(NoteProperties, DataTypes) {
    EXPECT_EQ(property(published<Note>(), "Title").dataType.str(), "char");
    EXPECT_EQ(property(published<Note>(), "Lines").dataType.str(), "cell");
}

// ---- texts

TEST_F(NoteProperties, TextReadsAsARow) {
    note_.title_ = "a title";
    const Array title = get("Title");
    EXPECT_EQ(hvGetM(title.get()), 1u);
    EXPECT_EQ(hvGetN(title.get()), 7u);
    EXPECT_EQ(charactersOf(title.get()), "a title");
    EXPECT_EQ(title->refs, 1u);
}

TEST_F(NoteProperties, EmptyTextReadsAsTheEmptyRow) {
    note_.title_.clear();
    const Array title = get("Title");
    EXPECT_EQ(hvGetClassID(title.get()), hvCHAR_CLASS);
    EXPECT_EQ(hvGetM(title.get()), 1u);
    EXPECT_EQ(hvGetN(title.get()), 0u);
}

TEST_F(NoteProperties, TextReadsUpToItsFirstNul) {
    note_.title_ = "head\0tail"s;
    EXPECT_EQ(charactersOf(get("Title").get()), "head");
    note_.title_ = "\0tail"s;
    EXPECT_EQ(charactersOf(get("Title").get()), "");
}

TEST_F(NoteProperties, TextIsAssigned) {
    set("Title", text("new title"));
    EXPECT_EQ(note_.title_, "new title");
    set("Title", text("\xc3\xa9\xff\x01"));
    EXPECT_EQ(note_.title_, "\xc3\xa9\xff\x01");
    const std::string longText(5000, 'x');
    set("Title", text(longText));
    EXPECT_EQ(note_.title_, longText);
    EXPECT_EQ(charactersOf(get("Title").get()), longText);
}

TEST_F(NoteProperties, TextIsAssignedUpToItsFirstNul) {
    set("Title", text("head\0tail"s));
    EXPECT_EQ(note_.title_, "head");
}

// Short texts are converted whole; every length and every place of a NUL around where that ends.
TEST_F(NoteProperties, TextsOfEveryLengthAreAssignedUpToTheirFirstNul) {
    const std::string all = "0123456789\x80\xff CDEFGHIJKLMNOPQRSTUV";
    for (std::size_t length = 0; length <= all.size(); ++length) {
        const std::string whole = all.substr(0, length);
        set("Title", text(whole));
        EXPECT_EQ(note_.title_, whole);
        EXPECT_EQ(charactersOf(get("Title").get()), whole);
        for (std::size_t at = 0; at < length; ++at) {
            std::string broken = whole;
            broken[at] = '\0';
            set("Title", text(broken));
            EXPECT_EQ(note_.title_, whole.substr(0, at)) << length;
        }
    }
}

TEST_F(NoteProperties, EveryEmptyCharacterArrayIsTheEmptyText) {
    const std::size_t sizes[][2] = {{0, 0}, {1, 0}, {0, 1}, {0, 7}, {5, 0}};
    for (const auto& [rows, columns] : sizes) {
        note_.title_ = "full";
        set("Title", Array(hvCreateArray(hvCHAR_CLASS, rows, columns)));
        EXPECT_EQ(note_.title_, "") << rows << " by " << columns;
    }
}

TEST_F(NoteProperties, WhatIsNoTextRowIsRefused) {
    const Array column(hvCreateArray(hvCHAR_CLASS, 3, 1));
    const Array matrix(hvCreateArray(hvCHAR_CLASS, 2, 2));
    const Array cell = cellOf(1, 1, {hvCreateString("x")});
    for (const Array* value : {&column, &matrix, &cell})
        EXPECT_EQ(errorOf([&] { set("Title", *value); }), "varnix:wrongType");
    EXPECT_EQ(errorOf([&] { set("Title", number(65)); }), "varnix:wrongType");
    EXPECT_EQ(errorOf([&] { set("Title", COSValue()); }), "varnix:wrongType");
    EXPECT_EQ(note_.title_, "unchanged");
    EXPECT_EQ(note_.assignments_, 0);
}

// ---- cells of texts

TEST_F(NoteProperties, CellReadsAsAColumn) {
    note_.lines_ = {"one", "", "thr\0ee"s};
    const Array lines = get("Lines");
    ASSERT_EQ(hvGetClassID(lines.get()), hvCELL_CLASS);
    EXPECT_EQ(hvGetM(lines.get()), 3u);
    EXPECT_EQ(hvGetN(lines.get()), 1u);
    EXPECT_EQ(charactersOf(hvGetCell(lines.get(), 0)), "one");
    EXPECT_EQ(hvGetM(hvGetCell(lines.get(), 1)), 1u);
    EXPECT_EQ(hvGetN(hvGetCell(lines.get(), 1)), 0u);
    EXPECT_EQ(charactersOf(hvGetCell(lines.get(), 2)), "thr");
    EXPECT_EQ(lines->refs, 1u);
}

TEST_F(NoteProperties, EmptyVectorReadsAsZeroByOne) {
    note_.lines_.clear();
    const Array lines = get("Lines");
    EXPECT_EQ(hvGetClassID(lines.get()), hvCELL_CLASS);
    EXPECT_EQ(hvGetM(lines.get()), 0u);
    EXPECT_EQ(hvGetN(lines.get()), 1u);
}

TEST_F(NoteProperties, RowOfTextsIsAcceptedAndReadsBackAsAColumn) {
    set("Lines", cellOf(1, 3, {hvCreateString("a"), hvCreateString(""), hvCreateString("ccc")}));
    EXPECT_THAT(note_.lines_, ElementsAre("a", "", "ccc"));
    const Array lines = get("Lines");
    EXPECT_EQ(hvGetM(lines.get()), 3u);
    EXPECT_EQ(hvGetN(lines.get()), 1u);
}

TEST_F(NoteProperties, CellIsTakenInLinearOrder) {
    set("Lines", cellOf(2, 2,
                        {hvCreateString("1,1"), hvCreateString("2,1"), hvCreateString("1,2"),
                         hvCreateString("2,2")}));
    EXPECT_THAT(note_.lines_, ElementsAre("1,1", "2,1", "1,2", "2,2"));
}

// An element may be a character array of any shape; its characters count in linear order.
TEST_F(NoteProperties, CellElementsMayHaveAnyShape) {
    Array matrix(hvCreateArray(hvCHAR_CLASS, 2, 2));
    std::memcpy(hvGetData(matrix.get()), "abcd", 4);
    set("Lines",
        cellOf(3, 1,
               {matrix.release(), hvCreateArray(hvCHAR_CLASS, 0, 0), hvCreateStringN("x\0y", 3)}));
    EXPECT_THAT(note_.lines_, ElementsAre("abcd", "", "x"));
}

TEST_F(NoteProperties, CellWithoutElementsIsTheEmptyVector) {
    const std::size_t sizes[][2] = {{0, 0}, {0, 1}, {1, 0}, {0, 9}};
    for (const auto& [rows, columns] : sizes) {
        note_.lines_ = {"full"};
        set("Lines", cellOf(rows, columns, {}));
        EXPECT_THAT(note_.lines_, IsEmpty()) << rows << " by " << columns;
    }
}

TEST_F(NoteProperties, NullIsTheEmptyVector) {
    set("Lines", COSValue());
    EXPECT_THAT(note_.lines_, IsEmpty());
    note_.lines_ = {"full"};
    setUnchecked("Lines", nullptr, "cell");
    EXPECT_THAT(note_.lines_, IsEmpty());
}

TEST_F(NoteProperties, WhatIsNoCellIsRefused) {
    const Array row = text("no cell");
    const Array emptyText = text("");
    const Array emptyNumbers(hvCreateArray(hvDOUBLE_CLASS, 0, 0));
    const Array numbers(hvCreateArray(hvINT32_CLASS, 2, 2));
    const Array* const values[] = {&row, &emptyText, &emptyNumbers, &numbers, &handle_};
    for (const Array* value : values)
        EXPECT_EQ(errorOf([&] { set("Lines", *value); }), "varnix:mustBeCellArray");
    EXPECT_EQ(errorOf([&] { set("Lines", number(1)); }), "varnix:mustBeCellArray");
    EXPECT_EQ(errorOf([&] { set("Lines", logical(true)); }), "varnix:mustBeCellArray");
    EXPECT_THAT(note_.lines_, ElementsAre("un", "changed"));
    EXPECT_EQ(note_.assignments_, 0);
}

TEST_F(NoteProperties, ElementThatIsNoTextIsRefusedByItsIndex) {
    const auto refusedAt = [&](const Array& cell) {
        EXPECT_EQ(errorOf([&] { set("Lines", cell); }), "varnix:mustBeString");
        return messageOf([&] { set("Lines", cell); });
    };
    const auto errorForIndex = [](std::size_t index) {
        return messageOf([&] { objsys::factory::errorMustBeString(index); });
    };
    EXPECT_NE(errorForIndex(0), errorForIndex(1));
    // A number at the second position: the zero-based index 1.
    EXPECT_EQ(refusedAt(cellOf(1, 3,
                               {hvCreateString("converted"), hvCreateDoubleScalar(2),
                                hvCreateString("never seen")})),
              errorForIndex(1));
    EXPECT_EQ(refusedAt(cellOf(2, 1, {hvCreateLogicalScalar(true), hvCreateDoubleScalar(2)})),
              errorForIndex(0));
    EXPECT_EQ(refusedAt(cellOf(1, 2, {hvCreateString("text"), hvCreateCellMatrix(1, 1)})),
              errorForIndex(1));
    // An absent cell is no text either, nor is an empty array of numbers.
    EXPECT_EQ(refusedAt(cellOf(1, 4, {hvCreateString("a"), hvCreateString("b"), nullptr, nullptr})),
              errorForIndex(2));
    EXPECT_EQ(refusedAt(cellOf(1, 1, {hvCreateArray(hvDOUBLE_CLASS, 0, 0)})), errorForIndex(0));
    EXPECT_THAT(note_.lines_, ElementsAre("un", "changed"));
    EXPECT_EQ(note_.assignments_, 0);
}

TEST_F(NoteProperties, AssigningKeepsTheCallersArray) {
    const Array title = text("kept");
    const Array lines = cellOf(1, 1, {hvCreateString("kept too")});
    set("Title", title);
    set("Lines", lines);
    EXPECT_EQ(title->refs, 1u);
    EXPECT_EQ(lines->refs, 1u);
    EXPECT_EQ(hvGetCell(lines.get(), 0)->refs, 1u);
    EXPECT_EQ(charactersOf(title.get()), "kept");
}

// ---- objects and rows of objects

/// May stand with objects of other classes in one array.
class Shape : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Shape";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Shape> declare(definition);
        declare.superclass("varnix.mixin.Heterogeneous");
    }
};
class Circle : public Shape {
public:
    static constexpr const char* scriptClassName = "internal.sample.Circle";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Circle> declare(definition);
        declare.superclass("internal.sample.Shape");
    }
};
class Square : public Shape {
public:
    static constexpr const char* scriptClassName = "internal.sample.Square";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Square> declare(definition);
        declare.superclass("internal.sample.Shape");
    }
};

class Drawing : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Drawing";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Drawing> declare(definition);
        declare.readOnly<&Drawing::largest>("Largest");
        declare.readOnly<&Drawing::shapes>("Shapes");
    }
    Shape* largest() const { return largest_; }
    std::vector<Shape*> shapes() const { return shapes_; }

    Shape* largest_ = nullptr;
    std::vector<Shape*> shapes_;
};

class DrawingProperties : public testing::Test {
protected:
    DrawingProperties() : handle_(handleOf(&drawing_)) {
        published<Shape>();
        published<Circle>();
        published<Square>();
    }
    Array get(const char* name, const char* type) {
        const COSValue value = property(published<Drawing>(), name).get(instanceIn(handle_));
        EXPECT_EQ(value.type().str(), type);
        return Array(value.asArray());
    }
    Array shapes() { return get("Shapes", "internal.sample.Shape vector"); }
    Array largest() { return get("Largest", "internal.sample.Shape"); }

    Drawing drawing_;
    Array handle_;
};

TEST_F(DrawingProperties, DataTypes) {
    const COSProperty& largest = property(published<Drawing>(), "Largest");
    const COSProperty& shapes = property(published<Drawing>(), "Shapes");
    EXPECT_EQ(largest.dataType.str(), "internal.sample.Shape");
    EXPECT_EQ(shapes.dataType.str(), "internal.sample.Shape vector");
    EXPECT_EQ(largest.setter, nullptr);
    EXPECT_EQ(shapes.setter, nullptr);
}

TEST_F(DrawingProperties, ObjectIsItsHandle) {
    Shape shape;
    drawing_.largest_ = &shape;
    const Array handle = largest();
    EXPECT_EQ(nativeIn<Shape>(handle), &shape);
    EXPECT_EQ(handle->objectClass, &published<Shape>());
    EXPECT_EQ(handle->refs, 1u);
    // The same one again, and not another owner of the object.
    const Array again = largest();
    EXPECT_EQ(again.get(), handle.get());
    EXPECT_EQ(handle->refs, 2u);
}

TEST_F(DrawingProperties, NoObjectIsAnEmptyArrayOfTheClass) {
    const Array handle = largest();
    EXPECT_EQ(hvGetClassID(handle.get()), hvOBJECT_CLASS);
    EXPECT_EQ(hvGetM(handle.get()), 0u);
    EXPECT_EQ(hvGetN(handle.get()), 0u);
    EXPECT_EQ(handle->objectClass, &published<Shape>());
}

TEST_F(DrawingProperties, RowKeepsOrderAndGivesEachItsOwnHandle) {
    std::array<Shape, 5> shapes;
    for (Shape& shape : shapes)
        drawing_.shapes_.insert(drawing_.shapes_.begin(), &shape);
    const Array third = handleOf(&shapes[2]);
    const Array row = this->shapes();
    EXPECT_EQ(hvGetM(row.get()), 1u);
    ASSERT_EQ(hvGetN(row.get()), 5u);
    EXPECT_EQ(row->objectClass, &published<Shape>());
    for (std::size_t i = 0; i < 5; ++i)
        EXPECT_EQ(omGetArrayElement(row.get(), i), BindingRegistry::instanceOf(&shapes[4 - i]));
    EXPECT_EQ(omGetArrayElement(row.get(), 2), instanceIn(third));
    // The row holds one reference to each; the temporary handles are gone.
    EXPECT_EQ(omGetArrayElement(row.get(), 0)->handle()->refs, 1u);
    EXPECT_EQ(third->refs, 2u);
}

TEST_F(DrawingProperties, EmptyVectorIsOneByZero) {
    const Array row = shapes();
    EXPECT_EQ(hvGetClassID(row.get()), hvOBJECT_CLASS);
    EXPECT_EQ(hvGetM(row.get()), 1u);
    EXPECT_EQ(hvGetN(row.get()), 0u);
    EXPECT_EQ(row->objectClass, &published<Shape>());
}

TEST_F(DrawingProperties, ObjectMayStandInARowTwice) {
    Shape shape;
    drawing_.shapes_ = {&shape, &shape};
    const Array row = shapes();
    ASSERT_EQ(hvGetN(row.get()), 2u);
    EXPECT_EQ(omGetArrayElement(row.get(), 0), omGetArrayElement(row.get(), 1));
    EXPECT_EQ(omGetArrayElement(row.get(), 0)->handle()->refs, 2u);
}

TEST_F(DrawingProperties, RowOfOneDerivedClassTakesThatClass) {
    Circle first;
    Circle second;
    const Array handles[] = {handleOf(&first), handleOf(&second)};
    drawing_.shapes_ = {&first, &second};
    const Array row = shapes();
    EXPECT_EQ(row->objectClass, &published<Circle>());
    EXPECT_EQ(row->flags & hvArray::Heterogeneous, 0);
}

TEST_F(DrawingProperties, RowOfSeveralClassesTakesWhatTheyHaveInCommon) {
    Circle circle;
    Square square;
    Shape shape;
    const Array handles[] = {handleOf(&circle), handleOf(&square)};
    drawing_.shapes_ = {&circle, &square};
    const Array row = shapes();
    EXPECT_EQ(row->objectClass, &published<Shape>());
    EXPECT_NE(row->flags & hvArray::Heterogeneous, 0);
    EXPECT_EQ(omGetArrayElement(row.get(), 0)->getClass(), &published<Circle>());
    EXPECT_EQ(omGetArrayElement(row.get(), 1)->getClass(), &published<Square>());

    // Objects that have no handle yet get one of the declared class.
    drawing_.shapes_ = {&circle, &shape, &square};
    const Array three = shapes();
    EXPECT_EQ(three->objectClass, &published<Shape>());
    EXPECT_EQ(omGetArrayElement(three.get(), 1)->getClass(), &published<Shape>());
}

TEST_F(DrawingProperties, HandlesOfARowOutliveIt) {
    Shape shape;
    drawing_.shapes_ = {&shape};
    Array element;
    {
        const Array row = shapes();
        element.reset(hvShareArray(omGetArrayElement(row.get(), 0)->handle()));
    }
    EXPECT_TRUE(instanceIn(element)->isValid());
    EXPECT_EQ(nativeIn<Shape>(element), &shape);
    EXPECT_EQ(element->refs, 1u);
}

/// Its script class is never published.
class Unpublished : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Unpublished";
};

TEST(ObjectsOfAClassThatIsNotThere, CannotBeHandedOut) {
    Unpublished object;
    EXPECT_EQ(errorOf([&] { (void)HostType<Unpublished*>::pack(&object); }), "varnix:undefined");
    EXPECT_EQ(errorOf([&] { (void)HostType<Unpublished*>::pack(nullptr); }), "varnix:undefined");
    EXPECT_EQ(errorOf([&] { (void)HostType<std::vector<Unpublished*>>::pack({&object}); }),
              "varnix:undefined");
    EXPECT_EQ(BindingRegistry::instanceOf(&object), nullptr);
}

} // namespace
