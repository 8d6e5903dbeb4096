#include "debug/nameprinter.hpp"

#include "framework/declaration.hpp"

#include <qn/name_printing_service.hpp>

#include <fstream>
#include <iostream>

namespace quarn_vi::debug {

NamePrinter::NamePrinter() : NamePrinter(std::cout) {}

NamePrinter::NamePrinter(std::ostream& stream)
    : stream_(&stream), service_(new QN::NamePrintingService(*stream_)) {}

NamePrinter::NamePrinter(const std::string& fileName)
    : NamePrinter(*new std::ofstream(fileName, std::ios::out | std::ios::trunc)) {}

NamePrinter::~NamePrinter() = default;

QN::Service* NamePrinter::service() {
    return service_.get();
}

CosNamePrinter::CosNamePrinter()
    : HandleClassInfo("NamePrinter", "QUARN Name Printer Service controller.") {}

void CosNamePrinter::defineClass(objsys::COSClassDefinition* definition) {
    objsys::factory::ClassDeclaration<NamePrinter> declare(definition);
    declare.constructor();
    declare.constructor<std::string>();
    declare.property<&Registerable::enabled, &Registerable::setEnabled>("Enabled");
}

} // namespace quarn_vi::debug
