// The model a viewer window shows: the file's patches, the container the
// operations work on, and the statistics of its fields. Every message goes to
// the calling thread's host; nothing here draws.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "api/TundrelApi.h"

namespace tundrel::view {

// Minimum, maximum and mean over the values that are not no value, and how
// many are no value (below kNoValueBelow, or NaN).
struct FieldStatistics {
    std::string name;
    double min = 0, max = 0, mean = 0;
    long long values = 0, noValue = 0;
};
FieldStatistics fieldStatistics(std::string name, std::span<const double> values);

struct PatchSummary {
    std::string name;
    bool structured = false;
    std::string size;  // "I x J x K" or "N faces"
    long long nodes = 0, faces = 0;
};

class Model {
public:
    Model();
    ~Model();

    // Reads a model of any registered format in place of the current one.
    // A failure shows one message naming the file and keeps the current model.
    bool load(const std::string& file);
    // Writes the model in the format of the file's extension without leaving
    // a partial file; a failure shows its message. Says through the host
    // what the format does not keep.
    bool save(const std::string& file);

    bool empty() const { return !field_ || field_->blockCount() == 0; }
    const std::string& file() const { return file_; }
    const std::string& title() const { return title_; }
    const z::ambientFlow& flow() const { return flow_; }
    const FieldMasterD& field() const { return *field_; }

    // The scalar fields a person can look at: the container's scalar
    // functions, without the reserved "$_" ones, in order.
    std::vector<std::string> scalarNames() const;
    // The values of a scalar field, one per node; empty for an unknown name.
    std::span<const double> values(const std::string& name) const;
    std::vector<PatchSummary> patches() const;
    std::vector<FieldStatistics> statistics() const;
    long long nodeCount() const;
    long long faceCount() const;

    // The operations. Each runs the library's own function with the host of
    // the calling thread (its dialogs and messages) and gives the name of the
    // field it added, or "" when it added none (cancelled or refused).
    std::string selfIllumination(const std::string& fieldName);
    std::string pressurePorts(const std::string& fieldName);
    // The mesh operations give false with a message when they change nothing.
    bool triangulate();
    bool refine();
    bool mirror(mesh::MirrorPlane plane);

private:
    std::string addedField(int functionsBefore) const;
    bool ensureFaces();
    void fromPatches();  // the container from the patches
    void toPatches();    // the patches from the container

    std::string file_, title_;
    region reg_;
    region_fe fe_;
    std::unique_ptr<FieldMasterD> field_;
    z::ambientFlow flow_;
};

}  // namespace tundrel::view
