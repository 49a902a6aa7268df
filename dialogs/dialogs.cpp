#include "dialogs/dialogs.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "api/detail/text.h"
#include "api/host.h"

namespace tundrel {

namespace {

constexpr int kOk = 1;
constexpr int kCancel = 2;

// The controls of a template, each at its place in dialog units.
ControlTemplate label(std::string text, DialogRect at) { return {-1, ControlKind::Label, std::move(text), at}; }
ControlTemplate edit(int id, DialogRect at) { return {id, ControlKind::Edit, {}, at}; }
ControlTemplate control(int id, ControlKind kind, std::string text, DialogRect at) {
    return {id, kind, std::move(text), at};
}
ControlTemplate okButton(DialogRect at) { return {kOk, ControlKind::Ok, "OK", at}; }
ControlTemplate cancelButton(DialogRect at) { return {kCancel, ControlKind::Cancel, "Cancel", at}; }

ControlCheck intIn(int id, int lo, int hi) { return {id, ValueKind::Int, true, double(lo), double(hi), 0}; }
ControlCheck number(int id) { return {id, ValueKind::Double, false, 0.0, 0.0, 0}; }
ControlCheck numberIn(int id, double lo, double hi) { return {id, ValueKind::Double, true, lo, hi, 0}; }
ControlCheck textOf(int id, int maxChars) { return {id, ValueKind::Text, false, 0.0, 0.0, maxChars}; }

DialogTemplate layout(int id, std::string title, int width, int height, std::vector<ControlTemplate> controls) {
    return {id, std::move(title), "MS Sans Serif", 8, std::move(controls), width, height};
}

// A template with OK and Cancel only, in the right-hand column.
DialogResource plain(int id, std::string title) {
    return {layout(id, std::move(title), 186, 95, {okButton({129, 7, 50, 14}), cancelButton({129, 24, 50, 14})}), {}};
}

std::vector<DialogResource> makeResources() {
    using S = SelfIlluminationDialog;
    using P = PressurePortsDialog;
    using A = ActiveAxesDialog;
    std::vector<DialogResource> r;
    r.push_back(plain(kFieldFilteringDialog, "Field Filtering"));
    r.push_back(plain(kDistributedLoadsDialog, "Distributed Loads"));
    r.push_back({layout(kSelfIlluminationDialog, "Self-illumination parameters", 297, 68,
                        {label("Complete diffusion reflection ratio (0 - 1)", {7, 9, 165, 8}),
                         edit(S::kRatio, {175, 7, 50, 14}),
                         control(S::kCheckVisibility, ControlKind::CheckBox,
                                 "Check visibility (recommented only for selected nodes)", {7, 28, 225, 10}),
                         label("New field name", {7, 48, 60, 8}), edit(S::kNewFieldName, {70, 46, 155, 14}),
                         okButton({240, 7, 50, 14}), cancelButton({240, 24, 50, 14})}),
                 {numberIn(S::kRatio, 0.0, 1.0), {S::kCheckVisibility, ValueKind::Check, false, 0.0, 0.0, 0},
                  textOf(S::kNewFieldName, 255)}});
    r.push_back({layout(kPressurePortsDialog, "Pressure ports parameters", 297, 84,
                        {label("Order of the convergence approximation", {7, 9, 180, 8}),
                         edit(P::kOrder, {190, 7, 40, 14}),
                         label("Maximum deflexion of markers from the geometry", {7, 27, 180, 8}),
                         edit(P::kMaxDeflexion, {190, 25, 40, 14}), label("New field name", {7, 45, 70, 8}),
                         edit(P::kNewFieldName, {80, 43, 150, 14}), label("Markers file", {7, 63, 70, 8}),
                         edit(P::kMarkersFile, {80, 61, 150, 14}),
                         control(P::kBrowse, ControlKind::Button, "Browse...", {240, 61, 50, 14}),
                         okButton({240, 7, 50, 14}), cancelButton({240, 24, 50, 14})}),
                 {intIn(P::kOrder, 0, 2), number(P::kMaxDeflexion), textOf(P::kNewFieldName, 255),
                  textOf(P::kMarkersFile, 255)}});
    r.push_back({layout(kActiveAxesDialog, "Active axes for the markers", 232, 65,
                        {label("Active axes", {7, 9, 50, 8}),
                         control(A::kAxis1, ControlKind::ReadOnlyEdit, {}, {60, 7, 30, 14}),
                         control(A::kAxis2, ControlKind::ReadOnlyEdit, {}, {95, 7, 30, 14}),
                         control(-1, ControlKind::Group, "Direction of the markers projection", {7, 28, 160, 30}),
                         control(A::kNormal, ControlKind::Radio, "Normal", {15, 41, 50, 10}),
                         control(A::kReverse, ControlKind::Radio, "Reverse", {80, 41, 50, 10}),
                         okButton({175, 7, 50, 14}), cancelButton({175, 24, 50, 14})}),
                 {textOf(A::kAxis1, 255), textOf(A::kAxis2, 255), {A::kNormal, ValueKind::Radio, false, 0.0, 0.0, 0}}});
    r.push_back(plain(kResectionDialog, "Resection parameters"));
    r.push_back(plain(kEmptyDialog, "Dialog"));
    return r;
}

const DialogResource& resource(int id) { return *dialogResource(id); }

const ControlCheck& checkOf(int dialogId, int control) {
    static const ControlCheck none;
    const DialogResource* r = dialogResource(dialogId);
    if (r == nullptr) return none;
    for (const ControlCheck& c : r->checks)
        if (c.control == control) return c;
    return none;
}

// Numbers as the framework prints them.
std::string formatInt(int v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%d", v);
    return buf;
}

std::string formatDouble(double v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.15g", v);
    return buf;
}

std::string_view trimBlanks(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    return s;
}

std::size_t characters(const std::string& s) {
    std::size_t n = 0;
    for (unsigned char c : s) n += (c & 0xC0) != 0x80;  // UTF-8 lead bytes
    return n;
}

// The framework's data exchange over the typed texts, one control at a time;
// `message` keeps the first refusal.
class Exchange {
public:
    Exchange(int dialogId, const ControlTexts& typed, const ControlTexts& shown)
        : dialogId_(dialogId), typed_(typed), shown_(shown) {}

    bool ok() const { return message_.empty(); }
    const std::string& message() const { return message_; }

    void integer(int control, int& value) {
        if (!ok()) return;
        std::int32_t v = 0;
        if (!text::parseInt(trimBlanks(text(control)), v)) return refuse("Please enter an integer.");
        if (std::string m = intRefusal(dialogId_, control, v); !m.empty()) return refuse(std::move(m));
        value = v;
    }

    void real(int control, double& value) {
        if (!ok()) return;
        double v = 0.0;
        if (!text::parseDouble(trimBlanks(text(control)), v)) return refuse("Please enter a number.");
        if (std::string m = numberRefusal(dialogId_, control, v); !m.empty()) return refuse(std::move(m));
        value = v;
    }

    void string(int control, std::string& value) {
        if (!ok()) return;
        const std::string& t = text(control);
        if (std::string m = textRefusal(dialogId_, control, t); !m.empty()) return refuse(std::move(m));
        value = t;
    }

    void check(int control, bool& value) {
        if (ok()) value = text(control) == "1";
    }

    // Radio buttons of one group: the index of the first checked one, or
    // `value` unchanged when none is checked.
    void radio(std::initializer_list<int> group, int& value) {
        if (!ok()) return;
        int k = 0;
        for (int control : group) {
            if (text(control) == "1") {
                value = k;
                return;
            }
            ++k;
        }
    }

private:
    const std::string& text(int control) const {
        auto it = typed_.find(control);
        if (it != typed_.end()) return it->second;
        it = shown_.find(control);
        static const std::string empty;
        return it != shown_.end() ? it->second : empty;
    }
    void refuse(std::string m) { message_ = std::move(m); }

    int dialogId_;
    const ControlTexts& typed_;
    const ControlTexts& shown_;
    std::string message_;
};

const char* flag(bool b) { return b ? "1" : "0"; }

FileChooser markersChooser(const char* extension) {
    FileChooser c;
    c.defaultExtension = std::string("*.") + extension;
    c.initialName = "Markers";
    c.filter = std::string("Markers files (*.") + extension + ")|*." + extension + "||";
    c.hideReadOnly = true;
    c.promptOnOverwrite = true;
    return c;
}

}  // namespace

const std::vector<DialogResource>& dialogResources() {
    static const std::vector<DialogResource> resources = makeResources();
    return resources;
}

const DialogResource* dialogResource(int id) {
    for (const DialogResource& r : dialogResources())
        if (r.layout.id == id) return &r;
    return nullptr;
}

std::string intRefusal(int dialogId, int control, long long value) {
    const ControlCheck& c = checkOf(dialogId, control);
    if (value < INT32_MIN || value > INT32_MAX) return "Please enter an integer.";
    if (c.ranged && (value < c.minimum || value > c.maximum))
        return "Please enter an integer between " + formatInt(static_cast<int>(c.minimum)) + " and " +
               formatInt(static_cast<int>(c.maximum)) + ".";
    return {};
}

std::string numberRefusal(int dialogId, int control, double value) {
    const ControlCheck& c = checkOf(dialogId, control);
    if (!std::isfinite(value)) return "Please enter a number.";
    if (c.ranged && (value < c.minimum || value > c.maximum))
        return "Please enter a number between " + formatDouble(c.minimum) + " and " + formatDouble(c.maximum) + ".";
    return {};
}

std::string textRefusal(int dialogId, int control, const std::string& value) {
    const ControlCheck& c = checkOf(dialogId, control);
    if (c.maxChars > 0 && characters(value) > static_cast<std::size_t>(c.maxChars))
        return "Please enter no more than " + formatInt(c.maxChars) + " characters.";
    return {};
}

bool runDialog(Dialog& dialog) {
    struct CursorBack {
        ~CursorBack() { host().setBusy(true); }
    };
    host().setBusy(false);
    CursorBack back;
    return host().askParameters(dialog);
}

// Self-illumination parameters.

const DialogTemplate& SelfIlluminationDialog::dialogTemplate() const { return resource(kSelfIlluminationDialog).layout; }

ControlTexts SelfIlluminationDialog::controlText() const {
    return {{kRatio, formatDouble(ratio)}, {kCheckVisibility, flag(checkVisibility)}, {kNewFieldName, newFieldName}};
}

std::string SelfIlluminationDialog::exchange(const ControlTexts& typed) {
    double r = ratio;
    bool visibility = checkVisibility;
    std::string name = newFieldName;
    Exchange dx(kSelfIlluminationDialog, typed, controlText());
    dx.real(kRatio, r);
    dx.check(kCheckVisibility, visibility);
    dx.string(kNewFieldName, name);
    if (!dx.ok()) return dx.message();
    ratio = r;
    checkVisibility = visibility;
    newFieldName = std::move(name);
    return {};
}

// Pressure ports parameters.

const DialogTemplate& PressurePortsDialog::dialogTemplate() const { return resource(kPressurePortsDialog).layout; }

ControlTexts PressurePortsDialog::controlText() const {
    return {{kOrder, formatInt(order)},
            {kMaxDeflexion, formatDouble(maxDeflexion)},
            {kNewFieldName, newFieldName},
            {kMarkersFile, markersFile}};
}

std::string PressurePortsDialog::exchange(const ControlTexts& typed) {
    int o = order;
    double deflexion = maxDeflexion;
    std::string name = newFieldName, file = markersFile;
    Exchange dx(kPressurePortsDialog, typed, controlText());
    dx.integer(kOrder, o);
    dx.real(kMaxDeflexion, deflexion);
    dx.string(kNewFieldName, name);
    dx.string(kMarkersFile, file);
    if (!dx.ok()) return dx.message();
    order = o;
    maxDeflexion = deflexion;
    newFieldName = std::move(name);
    markersFile = std::move(file);
    return {};
}

void PressurePortsDialog::pressButton(int id, ControlTexts& texts) {
    if (id == kBrowse) browseFile(*this, texts, markerFileChooser(), markersFile);
}

// Active axes for the markers.

const DialogTemplate& ActiveAxesDialog::dialogTemplate() const { return resource(kActiveAxesDialog).layout; }

ControlTexts ActiveAxesDialog::controlText() const {
    return {{kAxis1, axis1}, {kAxis2, axis2}, {kNormal, flag(direction)}, {kReverse, flag(!direction)}};
}

std::string ActiveAxesDialog::exchange(const ControlTexts& typed) {
    std::string a1 = axis1, a2 = axis2;
    int choice = direction ? 0 : 1;
    Exchange dx(kActiveAxesDialog, typed, controlText());
    dx.string(kAxis1, a1);
    dx.string(kAxis2, a2);
    dx.radio({kNormal, kReverse}, choice);
    if (!dx.ok()) return dx.message();
    axis1 = std::move(a1);
    axis2 = std::move(a2);
    direction = choice == 0;
    return {};
}

bool chooseActiveAxes(bool hasX, bool hasY, bool hasZ, bool& direction) {
    // The axis names are assigned as characters: string literals here set off
    // a false -Wrestrict of GCC 12 at -O3.
    char first = 0, second = 0;
    if (hasX && hasY) first = 'X', second = 'Y';
    else if (hasX && hasZ) first = 'X', second = 'Z';
    else if (hasY && hasZ) first = 'Y', second = 'Z';
    ActiveAxesDialog dialog;
    if (first != 0) {
        dialog.axis1.assign(1, first);
        dialog.axis2.assign(1, second);
    }
    dialog.direction = direction;
    if (!runDialog(dialog)) return false;
    direction = dialog.direction;
    return true;
}

// File choosers.

FileChooser markerFileChooser() { return markersChooser("mrk"); }
FileChooser pointMarkerFileChooser() { return markersChooser("apm"); }
FileChooser imageMarkerFileChooser() { return markersChooser("mpt"); }

FileChooser cameraFileChooser() {
    FileChooser c;
    c.defaultExtension = "*.cam";
    c.initialName = "Camera";
    c.filter = "Camera files (*.cam)|*.cam||";
    c.hideReadOnly = true;
    c.promptOnOverwrite = true;
    return c;
}

const std::vector<CameraFormat>& cameraFormats() {
    static const std::vector<CameraFormat> formats = {{"Princeton", "spe"}, {"PCO", "b16"}, {"PMIS", "pmi"},
                                                      {"Photonic", "flf"},  {"Photonic", "tif"}, {"Pericolor", "p"},
                                                      {"All", "*"}};
    return formats;
}

std::string imageFileFilter() {
    std::string filter;
    for (const CameraFormat& f : cameraFormats())
        filter += std::string(f.name) + " Files (*." + f.extension + ")|*." + f.extension + "|";
    return filter + "|";
}

FileChooser imageFileChooser() {
    FileChooser c;
    c.filter = imageFileFilter();
    c.hideReadOnly = true;
    c.fileMustExist = true;
    c.explorer = true;
    return c;
}

bool browseFile(Dialog& dialog, ControlTexts& texts, const FileChooser& chooser, std::string& target) {
    const std::string problem = dialog.exchange(texts);
    if (!problem.empty()) {
        showMessage(problem);
        return false;
    }
    std::optional<std::string> chosen = host().chooseFile(chooser);
    if (!chosen) return false;
    target = *chosen;
    texts = dialog.controlText();
    return true;
}

}  // namespace tundrel
