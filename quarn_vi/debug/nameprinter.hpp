// internal.quarn.NamePrinter: prints the name of every run of a transform on a stream.
#pragma once

#include "debug/registerable.hpp"
#include "framework/class_info.hpp"

#include <iosfwd>
#include <memory>
#include <string>

namespace QN {
class NamePrintingService;
}

namespace quarn_vi::debug {

class NamePrinter : public Registerable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.NamePrinter";

    /// Prints on standard output.
    NamePrinter();
    /// Prints on a stream that outlives the controller.
    explicit NamePrinter(std::ostream& stream);
    /// Prints into a file, which is truncated now. A file that cannot be opened is not reported:
    /// what is printed is lost.
    explicit NamePrinter(const std::string& fileName);
    /// Deletes the service, without taking it out of the container first. The stream stays: a file
    /// is open until the process ends.
    ~NamePrinter() override;

    QN::Service* service() override;

private:
    std::ostream* stream_; // not owned
    std::unique_ptr<QN::NamePrintingService> service_;
};

class CosNamePrinter : public objsys::factory::HandleClassInfo<NamePrinter, 0> {
public:
    CosNamePrinter();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
