#include "dialogs/dialog.h"

namespace tundrel {

Dialog::~Dialog() = default;
void Dialog::pressButton(int, ControlTexts&) {}

}  // namespace tundrel
