// The hand-written CPython type, as good as we can make it, embedded in this program.
//
// What makes it fast: a static immutable type with tables of accessors and methods, so look-ups hit
// the interpreter's type cache; METH_NOARGS methods, which the interpreter's specialized calls
// know; construction by vectorcall, the native object in place inside the Python object, and a free
// list; the handle of a native object found again through a slot in that object; no garbage
// collection header, because a handle holds no Python object.
#include "python_subject.hpp"

#include <array>
#include <limits>
#include <new>

namespace bench {
namespace {

/// The Python object. Handles of objects that somebody else owns are allocated without `storage`.
struct Handle {
    PyObject ob_base;
    Statistics* native; ///< null once the native object has died
    bool owns;          ///< the native object is in `storage` and dies with the handle
    alignas(Statistics) std::array<std::byte, sizeof(Statistics)> storage;
};

constexpr Py_ssize_t borrowingSize = offsetof(Handle, storage);

/// Memory of owning handles that died last, ready for the next ones. Process state because the type
/// is: CPython's own free lists are kept in the same way.
constexpr std::size_t freeListCapacity = 64;
std::array<Handle*, freeListCapacity> freeList;
std::size_t freeListSize = 0;

PyTypeObject& statisticsType();

Handle* handleOf(PyObject* self) {
    return reinterpret_cast<Handle*>(self);
}

void invalidate(void* handle) {
    static_cast<Handle*>(handle)->native = nullptr;
}

void bind(Handle* handle, Statistics* native, bool owns) {
    handle->native = native;
    handle->owns = owns;
    native->slot = {handle, invalidate};
}

/// The one handle of `native`, as a new reference; None for null.
PyObject* wrapNative(Statistics* native) {
    if (native == nullptr) {
        return Py_NewRef(Py_None);
    }
    if (native->slot.handle != nullptr) [[likely]] {
        return Py_NewRef(static_cast<PyObject*>(native->slot.handle));
    }
    auto* const handle =
        static_cast<Handle*>(PyObject_Malloc(static_cast<std::size_t>(borrowingSize)));
    if (handle == nullptr) {
        return PyErr_NoMemory();
    }
    PyObject* const self = PyObject_Init(reinterpret_cast<PyObject*>(handle), &statisticsType());
    bind(handle, native, false);
    return self;
}

PyObject* construct(PyObject*, PyObject* const*, std::size_t count, PyObject* keywords) {
    if (PyVectorcall_NARGS(count) != 0 || keywords != nullptr) {
        PyErr_SetString(PyExc_TypeError, "Statistics takes no arguments");
        return nullptr;
    }
    Handle* handle = nullptr;
    if (freeListSize != 0) {
        handle = freeList[--freeListSize];
    } else {
        handle = static_cast<Handle*>(PyObject_Malloc(sizeof(Handle)));
        if (handle == nullptr) {
            return PyErr_NoMemory();
        }
    }
    PyObject* const self = PyObject_Init(reinterpret_cast<PyObject*>(handle), &statisticsType());
    bind(handle, new (handle->storage.data()) Statistics, true);
    return self;
}

void destroy(PyObject* self) {
    Handle* const handle = handleOf(self);
    if (handle->native != nullptr) {
        handle->native->slot = {};
        if (handle->owns) {
            handle->native->~Statistics();
        }
    }
    if (handle->owns && freeListSize < freeListCapacity) {
        freeList[freeListSize++] = handle;
    } else {
        PyObject_Free(handle);
    }
}

/// The native object, or null with an error set.
Statistics* nativeOf(PyObject* self) {
    Statistics* const native = handleOf(self)->native;
    if (native == nullptr) [[unlikely]] {
        PyErr_SetString(PyExc_ReferenceError, "the native object is gone");
    }
    return native;
}

/// Packs what `pack` makes of the native object.
template <auto pack>
PyObject* getter(PyObject* self, void*) {
    const Statistics* const native = nativeOf(self);
    return native == nullptr ? nullptr : pack(*native);
}

/// Hands the value to `unpack`, which stores it and returns true, or sets an error.
template <auto unpack>
int setter(PyObject* self, PyObject* value, void*) {
    Statistics* const native = nativeOf(self);
    if (native == nullptr) {
        return -1;
    }
    if (value == nullptr) {
        PyErr_SetString(PyExc_TypeError, "a property cannot be deleted");
        return -1;
    }
    return unpack(*native, value) ? 0 : -1;
}

PyObject* packString(std::string_view text) {
    return PyUnicode_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size()));
}

PyObject* packEnabled(const Statistics& native) {
    return Py_NewRef(native.enabled() ? Py_True : Py_False);
}

bool unpackEnabled(Statistics& native, PyObject* value) {
    if (value != Py_True && value != Py_False) {
        PyErr_SetString(PyExc_TypeError, "Enabled is a bool");
        return false;
    }
    native.setEnabled(value == Py_True);
    return true;
}

PyObject* packThreshold(const Statistics& native) {
    return PyLong_FromLong(native.threshold());
}

bool unpackThreshold(Statistics& native, PyObject* value) {
    const long number = PyLong_AsLong(value);
    if (number == -1 && PyErr_Occurred() != nullptr) {
        return false;
    }
    if (number < std::numeric_limits<std::int32_t>::min() ||
        number > std::numeric_limits<std::int32_t>::max()) {
        PyErr_SetString(PyExc_OverflowError, "Threshold is a 32-bit integer");
        return false;
    }
    native.setThreshold(static_cast<std::int32_t>(number));
    return true;
}

PyObject* packCount(const Statistics& native) {
    return PyLong_FromUnsignedLongLong(native.count());
}

bool unpackCount(Statistics& native, PyObject* value) {
    const unsigned long long number = PyLong_AsUnsignedLongLong(value);
    if (number == std::numeric_limits<unsigned long long>::max() && PyErr_Occurred() != nullptr) {
        return false;
    }
    native.setCount(number);
    return true;
}

PyObject* packOutputFormat(const Statistics& native) {
    return packString(native.outputFormat());
}

bool unpackOutputFormat(Statistics& native, PyObject* value) {
    Py_ssize_t size = 0;
    const char* const text = PyUnicode_AsUTF8AndSize(value, &size);
    if (text == nullptr) {
        return false;
    }
    native.setOutputFormat({text, static_cast<std::size_t>(size)});
    return true;
}

/// A list of what `pack` makes of each element.
template <class Vector, class Pack>
PyObject* packList(const Vector& values, Pack pack) {
    PyObject* const list = PyList_New(static_cast<Py_ssize_t>(values.size()));
    if (list == nullptr) {
        return nullptr;
    }
    Py_ssize_t index = 0;
    for (const auto& value : values) {
        PyObject* const element = pack(value);
        if (element == nullptr) {
            Py_DECREF(list);
            return nullptr;
        }
        PyList_SET_ITEM(list, index++, element);
    }
    return list;
}

PyObject* packFields(const Statistics& native) {
    return packList(native.fields(), packString);
}
PyObject* packChild(const Statistics& native) {
    return wrapNative(native.child());
}
PyObject* packViolations(const Statistics& native) {
    return packList(native.violations(), wrapNative);
}

PyObject* reset(PyObject* self, PyObject*) {
    Statistics* const native = nativeOf(self);
    if (native == nullptr) {
        return nullptr;
    }
    native->reset();
    return Py_NewRef(Py_None);
}

PyObject* hello(PyObject* self, PyObject*) {
    const Statistics* const native = nativeOf(self);
    return native == nullptr ? nullptr : packString(native->hello());
}

PyGetSetDef accessors[] = {
    {"Enabled", getter<packEnabled>, setter<unpackEnabled>, nullptr, nullptr},
    {"Threshold", getter<packThreshold>, setter<unpackThreshold>, nullptr, nullptr},
    {"Count", getter<packCount>, setter<unpackCount>, nullptr, nullptr},
    {"OutputFormat", getter<packOutputFormat>, setter<unpackOutputFormat>, nullptr, nullptr},
    {"Fields", getter<packFields>, nullptr, nullptr, nullptr},
    {"Child", getter<packChild>, nullptr, nullptr, nullptr},
    {"Violations", getter<packViolations>, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMethodDef methods[] = {
    {"reset", reset, METH_NOARGS, nullptr},
    {"hello", hello, METH_NOARGS, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

PyTypeObject& statisticsType() {
    static PyTypeObject type{}; // static types are what the interpreter serves fastest
    return type;
}

void readyType() {
    PyTypeObject& type = statisticsType();
    if ((type.tp_flags & Py_TPFLAGS_READY) != 0) {
        return;
    }
    Py_SET_REFCNT(&type, 1);
    type.tp_name = "bench.Statistics";
    type.tp_basicsize = sizeof(Handle);
    type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE;
    type.tp_dealloc = destroy;
    type.tp_getset = accessors;
    type.tp_methods = methods;
    type.tp_new = [](PyTypeObject* self, PyObject*, PyObject*) {
        return construct(reinterpret_cast<PyObject*>(self), nullptr, 0, nullptr);
    };
    type.tp_vectorcall = construct;
    checked(PyType_Ready(&type));
}

class CPython : public PythonSubject {
public:
    CPython() { readyType(); }
    std::string name() const override { return "CPython"; }

protected:
    PyObject* type() override { return reinterpret_cast<PyObject*>(&statisticsType()); }
    PyObject* wrap(Statistics* native) override { return wrapNative(native); }
};

/// The same type, its members reached through descriptors found beforehand.
class CPythonResolved : public CPython {
public:
    std::string name() const override { return "CPython, descriptors"; }
    Loop fromNative(Operation operation) override {
        return operation == Operation::construct ? Loop() : loopThrough<ByDescriptor>(operation);
    }
    Loop fromScript(Operation) override { return {}; } // a script has no such way
};

} // namespace

std::unique_ptr<Subject> makeCPython() {
    return std::make_unique<CPython>();
}
std::unique_ptr<Subject> makeCPythonResolved() {
    return std::make_unique<CPythonResolved>();
}

} // namespace bench
