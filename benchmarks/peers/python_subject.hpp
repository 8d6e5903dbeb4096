// What the peers inside CPython share: the interpreter, references, and the operations performed on
// a handle through interned names and from Python loops.
//
// Why it exists: the hand-written type and pybind11 differ in how they expose the object, not in
// how a program uses it, so that use is written once and both are measured by the same code. To
// extend: another binding for CPython derives PythonSubject and gives its type and its handles.
#pragma once

#include "statistics.hpp"
#include "subject.hpp"

#include <Python.h>
#include <memory>
#include <string>
#include <utility>

namespace bench {

/// An owned reference to a Python object, or none.
class PyRef {
public:
    PyRef() = default;
    /// Takes a new reference over.
    static PyRef take(PyObject* object) { return PyRef(object); }
    /// Shares a borrowed reference.
    static PyRef share(PyObject* object) {
        Py_XINCREF(object);
        return PyRef(object);
    }
    PyRef(const PyRef& other) : object_(other.object_) { Py_XINCREF(object_); }
    PyRef(PyRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    PyRef& operator=(PyRef other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~PyRef() { Py_XDECREF(object_); }

    PyObject* get() const { return object_; }

private:
    explicit PyRef(PyObject* object) : object_(object) {}
    PyObject* object_ = nullptr;
};

/// Throws std::runtime_error with the pending Python error's text.
[[noreturn]] void throwPythonError();

/// Gives a new reference on, or throws the pending Python error when there is none.
inline PyObject* checked(PyObject* result) {
    if (result == nullptr) [[unlikely]] {
        throwPythonError();
    }
    return result;
}

/// Throws the pending Python error when `status`, as Python's functions return it, is negative.
inline void checked(int status) {
    if (status < 0) [[unlikely]] {
        throwPythonError();
    }
}

/// Starts the interpreter of the system's python3-dev, without site packages and without looking at
/// the environment, unless it runs already. It is left running until the process ends, because
/// types and interned names live as long as it does.
void startPython();

/// A native object and the handle that the binding gave for it, in this order so that the handle
/// goes first.
struct PythonObject {
    std::shared_ptr<Statistics> native;
    PyRef handle;
    PyRef held; ///< keeps the handles of its live objects alive; may be none
};

class PythonSubject : public Subject {
public:
    void verify() override;
    Loop fromNative(Operation operation) override;
    Loop fromScript(Operation operation) override;

protected:
    PythonSubject();

    /// The Python type, borrowed.
    virtual PyObject* type() = 0;
    /// A handle for a native object that somebody else owns, as a new reference.
    virtual PyObject* wrap(Statistics* native) = 0;

    /// The object that `operation` works on, its live objects' handles already made and held.
    PythonObject objectFor(Operation operation);

    /// The operation from C++, members reached as `Access` does: ByName or ByDescriptor.
    template <class Access>
    Loop loopThrough(Operation operation);

private:
    /// The functions of the loops, defined once per subject beside its type.
    PyObject* scripts();
    PyRef scripts_;
};

/// The interned names of the exposed members.
struct PythonNames {
    PyObject* enabled;
    PyObject* threshold;
    PyObject* count;
    PyObject* outputFormat;
    PyObject* fields;
    PyObject* child;
    PyObject* violations;
    PyObject* reset;
    PyObject* hello;
};

const PythonNames& pythonNames();

/// Reaches members the way programs do: by interned name, through the object.
struct ByName {
    static PyRef resolve(PyObject* /*type*/, PyObject* name) { return PyRef::share(name); }
    static PyObject* get(PyObject* handle, PyObject* name) {
        return PyObject_GetAttr(handle, name);
    }
    static int set(PyObject* handle, PyObject* name, PyObject* value) {
        return PyObject_SetAttr(handle, name, value);
    }
    static PyObject* call(PyObject* handle, PyObject* name) {
        return PyObject_CallMethodNoArgs(handle, name);
    }
};

/// Reaches members through the type's descriptors, found beforehand. Few programs do this, but it
/// is the least that the interpreter's interface costs.
struct ByDescriptor {
    static PyRef resolve(PyObject* type, PyObject* name) {
        return PyRef::share(PyDict_GetItem(reinterpret_cast<PyTypeObject*>(type)->tp_dict, name));
    }
    static PyObject* get(PyObject* handle, PyObject* descriptor) {
        return Py_TYPE(descriptor)
            ->tp_descr_get(descriptor, handle, reinterpret_cast<PyObject*>(Py_TYPE(handle)));
    }
    static int set(PyObject* handle, PyObject* descriptor, PyObject* value) {
        return Py_TYPE(descriptor)->tp_descr_set(descriptor, handle, value);
    }
    static PyObject* call(PyObject* handle, PyObject* descriptor) {
        return PyObject_CallOneArg(descriptor, handle);
    }
};

} // namespace bench
