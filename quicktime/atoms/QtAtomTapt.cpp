#include "quicktime/atoms/QtAtomTapt.h"

#include "framework/Messages.h"

void QtAtomTapt::show() const { infoMsg("%s\n", toString().get()); }
