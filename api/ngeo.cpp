#include "api/ngeo.h"

#include <limits>

FacePatch::FacePatch(int nodes_, int indexLength_, int faces_)
    : PatchBase(nodes_, 1, 1), nodes(nodes_), faces(faces_), indexLength(indexLength_) {
    if (faces_ < 0 || indexLength_ < 0) throw arrayWorks::IndexError(arrayWorks::source::ngeo, __LINE__);
    faceIndex.assign(static_cast<std::size_t>(indexLength_), -1);
}

FacePatch::~FacePatch() = default;  // variables go with their last holder

void FacePatch::clear() {
    for (const auto& v : variables)
        if (v) v->clear();
}

region_fe::region_fe() = default;
region_fe::region_fe(const region_fe&) = default;
region_fe& region_fe::operator=(const region_fe&) = default;
region_fe::~region_fe() = default;
