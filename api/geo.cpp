#include "api/geo.h"
#include "api/detail/geometry_rules.h"

#include <cctype>
#include <limits>

NodeVariable::NodeVariable(const std::string& name_, int I_, int J_, int K_)
    : I(I_), strideI(1), J(J_), strideJ(I_), K(K_), name(name_) {
    const std::int64_t n = static_cast<std::int64_t>(I_) * J_ * K_;
    if (I_ < 0 || J_ < 0 || K_ < 0 || n > std::numeric_limits<std::int32_t>::max())
        throw arrayWorks::IndexError(arrayWorks::source::geo, __LINE__);
    strideK = static_cast<std::int32_t>(static_cast<std::int64_t>(I_) * J_);
    count = static_cast<std::int32_t>(n);
    values.assign(static_cast<std::size_t>(count), 0.0);
}

NodeVariable::~NodeVariable() = default;

double& NodeVariable::at(int i, int j) {
    if (i < 0 || i >= I) throw arrayWorks::IndexError(arrayWorks::source::geo, __LINE__);
    if (j < 0 || j >= J) throw arrayWorks::IndexError(arrayWorks::source::geo, __LINE__);
    return values[static_cast<std::size_t>(i + I * j)];
}

void NodeVariable::clear() {
    std::vector<double>().swap(values);
    I = J = K = 0;
    strideJ = strideK = 0;
    count = 0;
    name.clear();
}

std::string lowered(const std::string& text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

int coordinateAxis(std::string_view name) noexcept {
    if (name.size() != 1) return -1;
    switch (std::tolower(static_cast<unsigned char>(name[0]))) {
        case 'x': return 0;
        case 'y': return 1;
        case 'z': return 2;
        default: return -1;
    }
}

CoordinateSlots findCoordinates(const arrayWorks::PtrList<NodeVariable>& variables) {
    CoordinateSlots slots;
    int* slot[3] = {&slots.x, &slots.y, &slots.z};
    for (int k = 0; k < variables.size(); ++k) {
        if (!variables.exists(k)) continue;
        const int axis = coordinateAxis(variables.get(k)->name);
        if (axis >= 0) *slot[axis] = k;
    }
    return slots;
}

PatchBase::PatchBase(int I_, int J_, int K_) : I(I_), J(J_), K(K_) {
    const std::int64_t n = static_cast<std::int64_t>(I_) * J_ * K_;
    if (I_ < 0 || J_ < 0 || K_ < 0 || n > std::numeric_limits<std::int32_t>::max())
        throw arrayWorks::IndexError(arrayWorks::source::geo, __LINE__);
    N = static_cast<std::int32_t>(n);
}

PatchBase::~PatchBase() = default;

NodeVariable& PatchBase::addVariable(const std::string& name_) {
    if (NodeVariable* existing = findVariable(name_)) return *existing;
    auto v = std::make_shared<NodeVariable>(name_, I, J, K);
    NodeVariable& ref = *v;
    variables.append(std::move(v));
    return ref;
}

NodeVariable* PatchBase::findVariable(const std::string& name_) const {
    for (const auto& v : variables)
        if (v && v->name == name_) return v.get();
    return nullptr;
}

StructPatch::StructPatch(int I_, int J_, int K_) : PatchBase(I_, J_, K_) {}
StructPatch::~StructPatch() = default;

int StructPatch::nodeIndex(int i, int j) const {
    if (i < 0 || i >= I) throw arrayWorks::IndexError(arrayWorks::source::geo, __LINE__);
    if (j < 0 || j >= J) throw arrayWorks::IndexError(arrayWorks::source::geo, __LINE__);
    return i + I * j;
}

region::region() = default;
region::region(const region&) = default;
region& region::operator=(const region&) = default;
region::~region() = default;
