#include "framework/conversions.hpp"

namespace objsys::factory::impl {

namespace {

struct ElementTextRelease {
    void operator()(char* text) const { hvFreeEx(text); }
};

} // namespace

COSValue HostType<std::vector<std::string>>::pack(const std::vector<std::string>& value,
                                                  COSNameID type) {
    ArrayHolder cell(hvCreateCellMatrix(value.size(), 1));
    for (std::uint32_t i = 0; i < value.size(); ++i)
        hvSetCell(cell.get(), i, hvCreateString(value[i].c_str()));
    return COSValue::ofArray(cell.release(), type);
}

std::vector<std::string> HostType<std::vector<std::string>>::unpack(const COSValue& value) {
    std::vector<std::string> result;
    const hvArray* const cell = value.asArray();
    if (!cell)
        return result;
    if (hvGetClassID(cell) != hvCELL_CLASS)
        errorMustBeCellArray();
    const std::size_t count = hvGetNumberOfElements(cell);
    for (std::size_t i = 0; i < count; ++i) {
        const hvArray* const element = hvGetCell(cell, i);
        if (!element || hvGetClassID(element) != hvCHAR_CLASS)
            errorMustBeString(i);
        if (const std::unique_ptr<char, ElementTextRelease> text(hvArrayToString(element)); text)
            result.emplace_back(text.get());
    }
    return result;
}

} // namespace objsys::factory::impl
