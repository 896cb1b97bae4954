#include "quicktime/atoms/QtAtomSorvanMarker.h"

#include "framework/Messages.h"

QtAtomSorvanMarker::QtAtomSorvanMarker(BaseQtAtom const* parent) : QtAtomString(parent, qtId("skip")) {
    setText(kText);
    resetSize();
}

void QtAtomSorvanMarker::updateUserData(QtUserDataSet*) const {
    errorMsg("%s: this should not be a user data atom\n", getAtomPath().get());
}
