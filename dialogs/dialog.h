// The parameter dialogs and file choosers as plain data. A host draws a
// dialog from its template, shows the texts of controlText(), lets the user
// type, and on OK hands the typed texts to exchange(): an empty result closes
// the dialog, a message keeps it open (the host shows the message).
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "api/export.h"

namespace tundrel {

enum class ControlKind { Label, Edit, ReadOnlyEdit, CheckBox, Radio, Group, Button, Ok, Cancel };

// A place in dialog units, as a resource script gives it: a horizontal unit
// is a quarter of the template font's average character width, a vertical
// unit an eighth of its character height. All zero: no place given (a host
// lays the control out itself).
struct DialogRect {
    int x = 0, y = 0, width = 0, height = 0;
    bool empty() const { return width <= 0 || height <= 0; }
};

struct ControlTemplate {
    int id = 0;             // control id; -1 for static labels and groups
    ControlKind kind = ControlKind::Label;
    std::string label;      // label, caption or group title
    DialogRect rect;        // its place in the dialog
};

struct DialogTemplate {
    int id = 0;
    std::string title;
    std::string font = "MS Sans Serif";
    int fontSize = 8;
    std::vector<ControlTemplate> controls;
    int width = 0, height = 0;  // client area in dialog units; 0: not given
};

// Control id -> text. Check boxes and radio buttons hold "1" or "0".
using ControlTexts = std::map<int, std::string>;

class TUNDREL_API Dialog {
public:
    virtual ~Dialog();
    virtual const DialogTemplate& dialogTemplate() const = 0;
    // Texts of the controls, made from the members.
    virtual ControlTexts controlText() const = 0;
    // Reads the typed texts into the members with their validation; returns
    // the validation message, or an empty string when every value is valid.
    virtual std::string exchange(const ControlTexts& typed) = 0;
    // A push button other than OK and Cancel (a Browse... button, say); may
    // change the texts. Does nothing by default.
    virtual void pressButton(int id, ControlTexts& texts);
};

// An open-file dialog.
struct FileChooser {
    std::string defaultExtension;   // empty: none
    std::string initialName;        // empty: none
    std::string filter;             // "Name (*.ext)|*.ext||"
    bool hideReadOnly = false;
    bool promptOnOverwrite = false;
    bool fileMustExist = false;
    bool explorer = false;
};

}  // namespace tundrel
