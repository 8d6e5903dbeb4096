// The pybind11 peer: the same object declared the way pybind11's documentation does it.
//
// What makes it fast: return_value_policy::reference for objects that the parent owns, which spares
// the keep-alive bookkeeping of the default for properties; std::string_view for the string setter,
// which spares a copy. pybind11 finds the handle of a native object again in its own registry.
#include "python_subject.hpp"

#include <pybind11/embed.h>
#include <pybind11/stl.h>

namespace bench {
namespace {

namespace py = pybind11;

PYBIND11_EMBEDDED_MODULE(bench_pybind11, module) {
    constexpr auto borrowed = py::return_value_policy::reference;
    py::class_<Statistics>(module, "Statistics")
        .def(py::init<>())
        .def_property("Enabled", &Statistics::enabled, &Statistics::setEnabled)
        .def_property("Threshold", &Statistics::threshold, &Statistics::setThreshold)
        .def_property("Count", &Statistics::count, &Statistics::setCount)
        .def_property("OutputFormat", &Statistics::outputFormat, &Statistics::setOutputFormat)
        .def_property_readonly("Fields", &Statistics::fields)
        .def_property_readonly("Child", py::cpp_function(&Statistics::child, borrowed))
        .def_property_readonly("Violations", py::cpp_function(&Statistics::violations, borrowed))
        .def("reset", &Statistics::reset)
        .def("hello", &Statistics::hello);
}

class Pybind11 : public PythonSubject {
public:
    Pybind11()
        : type_(PyRef::take(py::object(py::module_::import("bench_pybind11").attr("Statistics"))
                                .release()
                                .ptr())) {}
    std::string name() const override { return "pybind11"; }

protected:
    PyObject* type() override { return type_.get(); }
    PyObject* wrap(Statistics* native) override {
        return py::cast(native, py::return_value_policy::reference).release().ptr();
    }

private:
    PyRef type_;
};

} // namespace

std::unique_ptr<Subject> makePybind11() {
    return std::make_unique<Pybind11>();
}

} // namespace bench
