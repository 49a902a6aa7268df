// The library's dialog templates (ids 4000 to 4007) as data, the three
// parameter dialogs with their data exchange and validation, and the
// open-file choosers with their filters.
//
// Data exchange works as a desktop framework's does: numbers are shown as
// "%.15g" (doubles) and "%d" (ints), check boxes and radio buttons as "1" or
// "0"; on OK the typed texts are parsed and checked control by control, and
// the first failure gives the framework's message ("Please enter an integer
// between 0 and 2.") and keeps the dialog open. A refused exchange changes no
// member.
#pragma once

#include <string>
#include <vector>

#include "api/export.h"
#include "dialogs/dialog.h"

namespace tundrel {

// Template ids.
inline constexpr int kFieldFilteringDialog = 4000;
inline constexpr int kDistributedLoadsDialog = 4001;
inline constexpr int kSelfIlluminationDialog = 4003;
inline constexpr int kPressurePortsDialog = 4004;
inline constexpr int kActiveAxesDialog = 4005;
inline constexpr int kResectionDialog = 4006;
inline constexpr int kEmptyDialog = 4007;

// The kind of value a control exchanges, its range and its length limit.
enum class ValueKind { Int, Double, Text, Check, Radio };

struct ControlCheck {
    int control = 0;
    ValueKind kind = ValueKind::Text;
    bool ranged = false;        // Int / Double: minimum..maximum inclusive
    double minimum = 0.0;
    double maximum = 0.0;
    int maxChars = 0;           // Text: at most this many characters (0: no limit)
};

// A template with the checks of its controls, in data-exchange order.
struct DialogResource {
    DialogTemplate layout;
    std::vector<ControlCheck> checks;
};

// Every template of the library, 4000 to 4007 (there is no 4002).
TUNDREL_API const std::vector<DialogResource>& dialogResources();
// The template with this id; nullptr for an id the library has no template of.
TUNDREL_API const DialogResource* dialogResource(int id);

// The checks of the data exchange applied to a value that is a number or a
// text already (as the typed operation cores take them): the framework's
// message for the first rule it breaks, or an empty string. A number that is
// not finite counts as no number at all, as no typed text gives one. A
// control without a check of that kind passes.
TUNDREL_API std::string intRefusal(int dialogId, int control, long long value);
TUNDREL_API std::string numberRefusal(int dialogId, int control, double value);
TUNDREL_API std::string textRefusal(int dialogId, int control, const std::string& value);

// Shows a dialog through the host with the wait cursor taken off for the
// modal loop and put back afterwards. False for Cancel.
TUNDREL_API bool runDialog(Dialog& dialog);

// "Self-illumination parameters" (4003).
class TUNDREL_API SelfIlluminationDialog : public Dialog {
public:
    static constexpr int kRatio = 4051;            // double, 0.0 to 1.0
    static constexpr int kCheckVisibility = 4052;  // check box
    static constexpr int kNewFieldName = 4053;     // at most 255 characters

    double ratio = 1.0;
    bool checkVisibility = false;
    std::string newFieldName;

    const DialogTemplate& dialogTemplate() const override;
    ControlTexts controlText() const override;
    std::string exchange(const ControlTexts& typed) override;
};

// "Pressure ports parameters" (4004).
class TUNDREL_API PressurePortsDialog : public Dialog {
public:
    static constexpr int kMaxDeflexion = 4054;  // double
    static constexpr int kOrder = 4055;         // int, 0 to 2
    static constexpr int kNewFieldName = 4056;  // at most 255 characters
    static constexpr int kMarkersFile = 4057;   // at most 255 characters
    static constexpr int kBrowse = 4058;        // opens the marker-file chooser

    int order = 0;
    double maxDeflexion = 0.0;
    std::string newFieldName = "_pp";
    std::string markersFile;

    const DialogTemplate& dialogTemplate() const override;
    ControlTexts controlText() const override;
    std::string exchange(const ControlTexts& typed) override;
    // Browse...: the marker-file chooser (see browseFile).
    void pressButton(int id, ControlTexts& texts) override;
};

// "Active axes for the markers" (4005).
class TUNDREL_API ActiveAxesDialog : public Dialog {
public:
    static constexpr int kAxis1 = 4059;    // read-only, at most 255 characters
    static constexpr int kAxis2 = 4060;    // read-only, at most 255 characters
    static constexpr int kNormal = 4061;   // radio: direction true
    static constexpr int kReverse = 4062;  // radio: direction false

    std::string axis1, axis2;
    bool direction = true;

    const DialogTemplate& dialogTemplate() const override;
    ControlTexts controlText() const override;
    std::string exchange(const ControlTexts& typed) override;
};

// Asks the projection direction of markers that have two coordinates. The
// axis boxes show the two present coordinates among "X", "Y", "Z" (X and Y,
// else X and Z, else Y and Z; both empty with fewer than two). The dialog
// opens with `direction`; OK writes the choice back and gives true, Cancel
// gives false and leaves `direction` alone.
TUNDREL_API bool chooseActiveAxes(bool hasX, bool hasY, bool hasZ, bool& direction);

// The open-file choosers.
TUNDREL_API FileChooser markerFileChooser();       // "*.mrk", for the pressure-ports dialog
TUNDREL_API FileChooser pointMarkerFileChooser();  // "*.apm", 3-D marker coordinates
TUNDREL_API FileChooser imageMarkerFileChooser();  // "*.mpt", image markers
TUNDREL_API FileChooser cameraFileChooser();       // "*.cam", camera parameters
TUNDREL_API FileChooser imageFileChooser();        // camera image formats

// The camera image formats of the image-file chooser, in filter order.
struct CameraFormat {
    const char* name;
    const char* extension;
};
TUNDREL_API const std::vector<CameraFormat>& cameraFormats();
// "Princeton Files (*.spe)|*.spe|...|All Files (*.*)|*.*||"
TUNDREL_API std::string imageFileFilter();

// A Browse... handler: reads the typed texts into the dialog's members (so
// other typed values are kept; a refused value is shown and nothing is
// chosen), runs the chooser, stores the chosen path in `target` and refreshes
// the texts from the members. False when nothing was chosen.
TUNDREL_API bool browseFile(Dialog& dialog, ControlTexts& texts, const FileChooser& chooser, std::string& target);

}  // namespace tundrel
