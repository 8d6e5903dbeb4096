// The interpreter's start, and the operations on a Python handle; see python_subject.hpp.
#include "python_subject.hpp"

#include <stdexcept>

namespace bench {
namespace {

/// The loops as a Python programmer writes them when speed matters: locals only, one operation a
/// turn, and a check of what the type does with right and wrong values.
constexpr const char* scriptSource = R"python(
def empty_turn(s, n):
    for _ in range(n):
        pass

def get_bool(s, n):
    for _ in range(n):
        x = s.Enabled

def set_bool(s, n):
    for _ in range(n):
        s.Enabled = True

def get_int32(s, n):
    for _ in range(n):
        x = s.Threshold

def set_int32(s, n):
    for _ in range(n):
        s.Threshold = 4711

def get_uint64(s, n):
    for _ in range(n):
        x = s.Count

def set_uint64(s, n):
    for _ in range(n):
        s.Count = 123456789

def get_string(s, n):
    for _ in range(n):
        x = s.OutputFormat

def set_string(s, n):
    for _ in range(n):
        s.OutputFormat = "QNEL text"

def get_strings(s, n):
    for _ in range(n):
        x = s.Fields

def get_object(s, n):
    for _ in range(n):
        x = s.Child

def void_call(s, n):
    for _ in range(n):
        s.reset()

def string_call(s, n):
    for _ in range(n):
        x = s.hello()

def construct(s, n):
    make = Statistics
    for _ in range(n):
        x = make()

def get_objects(s, n):
    for _ in range(n):
        x = s.Violations

def refuses(error, action):
    try:
        action()
    except error:
        return True
    return False

def verify(s):
    assert s.Enabled is True
    s.Enabled = False
    assert s.Enabled is False
    s.Threshold = -7
    assert s.Threshold == -7
    assert refuses((TypeError, OverflowError), lambda: setattr(s, "Threshold", 1 << 40))
    assert refuses(TypeError, lambda: setattr(s, "Threshold", "x"))
    s.Count = (1 << 64) - 1
    assert s.Count == (1 << 64) - 1
    s.OutputFormat = "dot"
    assert s.OutputFormat == "dot"
    assert refuses(TypeError, lambda: setattr(s, "OutputFormat", 1))
    assert len(s.Fields) == 10 and s.Fields[4] == "severity"
    assert s.Child is s.Child and s.Child is not s
    children = s.Violations
    assert len(children) == 3 and children == s.Violations and children[0] is not children[1]
    assert s.reset() is None
    assert s.hello() == "(-: hello :-)"
    made = Statistics()
    assert made.Enabled is False and made.Child is None and made.Violations == []
)python";

PyObject* intern(const char* text) {
    return checked(PyUnicode_InternFromString(text));
}

} // namespace

void throwPythonError() {
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* trace = nullptr;
    PyErr_Fetch(&type, &value, &trace);
    PyErr_NormalizeException(&type, &value, &trace);
    std::string message = "Python error";
    if (PyObject* text = value == nullptr ? nullptr : PyObject_Repr(value)) {
        message = PyUnicode_AsUTF8(text);
        Py_DECREF(text);
    }
    if (trace != nullptr) {
        const int line = reinterpret_cast<PyTracebackObject*>(trace)->tb_lineno;
        message += " at line " + std::to_string(line);
    }
    Py_XDECREF(type);
    Py_XDECREF(value);
    Py_XDECREF(trace);
    throw std::runtime_error(message);
}

void startPython() {
    if (Py_IsInitialized() != 0) {
        return;
    }
    PyConfig config;
    PyConfig_InitIsolatedConfig(&config);
    config.site_import = 0;
    PyConfig_SetString(&config, &config.program_name, BENCH_PYTHON_PROGRAM);
    const PyStatus status = Py_InitializeFromConfig(&config);
    PyConfig_Clear(&config);
    if (PyStatus_Exception(status) != 0) {
        throw std::runtime_error(std::string("CPython does not start: ") + status.err_msg);
    }
}

const PythonNames& pythonNames() {
    // Interned once and kept as long as the interpreter, which is as long as the process.
    static const PythonNames names = {
        .enabled = intern("Enabled"),
        .threshold = intern("Threshold"),
        .count = intern("Count"),
        .outputFormat = intern("OutputFormat"),
        .fields = intern("Fields"),
        .child = intern("Child"),
        .violations = intern("Violations"),
        .reset = intern("reset"),
        .hello = intern("hello"),
    };
    return names;
}

PythonSubject::PythonSubject() {
    startPython();
}

PythonObject PythonSubject::objectFor(Operation operation) {
    PythonObject object;
    object.native = makeStatistics(liveObjects(operation));
    object.handle = PyRef::take(checked(wrap(object.native.get())));
    PyObject* const kept =
        liveObjects(operation) != 0 ? pythonNames().violations : pythonNames().child;
    object.held = PyRef::take(checked(PyObject_GetAttr(object.handle.get(), kept)));
    return object;
}

PyObject* PythonSubject::scripts() {
    if (scripts_.get() == nullptr) {
        scripts_ = PyRef::take(checked(PyDict_New()));
        checked(PyDict_SetItemString(scripts_.get(), "__builtins__", PyEval_GetBuiltins()));
        checked(PyDict_SetItemString(scripts_.get(), "Statistics", type()));
        const PyRef done = PyRef::take(
            checked(PyRun_String(scriptSource, Py_file_input, scripts_.get(), scripts_.get())));
    }
    return scripts_.get();
}

void PythonSubject::verify() {
    PythonObject object;
    object.native = makeStatistics(3);
    object.handle = PyRef::take(checked(wrap(object.native.get())));
    PyObject* const function = PyDict_GetItemString(scripts(), "verify"); // borrowed
    const PyRef done = PyRef::take(checked(PyObject_CallOneArg(function, object.handle.get())));
    require(!object.native->enabled() && object.native->threshold() == -7 &&
                object.native->outputFormat() == "dot" && object.native->resets() == 1,
            *this, "a value that a script set does not arrive");
}

Loop PythonSubject::fromScript(Operation operation) {
    return [object = objectFor(operation),
            function = PyRef::share(PyDict_GetItemString(scripts(), scriptFunction(operation)))](
               std::size_t count) {
        const PyRef turns = PyRef::take(checked(PyLong_FromSize_t(count)));
        PyObject* arguments[] = {object.handle.get(), turns.get()};
        Py_DECREF(checked(PyObject_Vectorcall(function.get(), arguments, 2, nullptr)));
    };
}

template <class Access>
Loop PythonSubject::loopThrough(Operation operation) {
    const PythonNames& names = pythonNames();
    const auto get = [&](PyObject* name, auto use) -> Loop {
        return repeat([object = objectFor(operation), member = Access::resolve(type(), name), use] {
            PyObject* const value = checked(Access::get(object.handle.get(), member.get()));
            use(value);
            Py_DECREF(value);
        });
    };
    const auto set = [&](PyObject* name, auto make) -> Loop {
        return repeat(
            [object = objectFor(operation), member = Access::resolve(type(), name), make] {
                PyObject* const value = checked(make());
                checked(Access::set(object.handle.get(), member.get(), value));
                Py_DECREF(value);
            });
    };
    const auto call = [&](PyObject* name, auto use) -> Loop {
        return repeat([object = objectFor(operation), member = Access::resolve(type(), name), use] {
            PyObject* const value = checked(Access::call(object.handle.get(), member.get()));
            use(value);
            Py_DECREF(value);
        });
    };
    const auto makeText = [] {
        return PyUnicode_FromStringAndSize(formatValue.data(),
                                           static_cast<Py_ssize_t>(formatValue.size()));
    };
    const auto useText = [](PyObject* value) {
        Py_ssize_t size = 0;
        keep(PyUnicode_AsUTF8AndSize(value, &size));
        keep(size);
    };
    const auto useList = [](PyObject* value) { keep(PyList_GET_SIZE(value)); };
    const auto useObject = [](PyObject* value) { keep(value); };

    switch (operation) {
    case Operation::getBool:
        return get(names.enabled, [](PyObject* value) { keep(value == Py_True); });
    case Operation::setBool:
        return set(names.enabled, [] { return Py_NewRef(Py_True); });
    case Operation::getInt32:
        return get(names.threshold, [](PyObject* value) { keep(PyLong_AsLong(value)); });
    case Operation::setInt32:
        return set(names.threshold, [] { return PyLong_FromLong(thresholdValue); });
    case Operation::getUint64:
        return get(names.count, [](PyObject* value) { keep(PyLong_AsUnsignedLongLong(value)); });
    case Operation::setUint64:
        return set(names.count, [] { return PyLong_FromUnsignedLongLong(countValue); });
    case Operation::getString:
        return get(names.outputFormat, useText);
    case Operation::setString:
        return set(names.outputFormat,
                   [text = PyRef::take(checked(makeText()))] { return Py_NewRef(text.get()); });
    case Operation::setNewString:
        return set(names.outputFormat, makeText);
    case Operation::getStrings:
        return get(names.fields, useList);
    case Operation::getObject:
        return get(names.child, useObject);
    case Operation::voidCall:
        return call(names.reset, useObject);
    case Operation::stringCall:
        return call(names.hello, useText);
    case Operation::construct:
        return repeat(
            [made = PyRef::share(type())] { Py_DECREF(checked(PyObject_CallNoArgs(made.get()))); });
    case Operation::getObjects1000:
    case Operation::getObjects100000:
        return get(names.violations, useList);
    case Operation::emptyLoop:
        return {};
    }
    return {};
}

template Loop PythonSubject::loopThrough<ByName>(Operation);
template Loop PythonSubject::loopThrough<ByDescriptor>(Operation);

Loop PythonSubject::fromNative(Operation operation) {
    return loopThrough<ByName>(operation);
}

} // namespace bench
