// The user-data layer: QtUserDataSet makes the atom objects for the children of a 'udta' atom,
// and UserDataValue is a value that can be written into a user-data atom. Every child is kept
// byte for byte in a QtAtomPreserved, so a movie's
// user data survives a read and write unchanged whatever its types.
#pragma once

#include "framework/AutoPtr.h"
#include "quicktime/atoms/QtAtomIdType.h"

class BaseQtAtom;

class UserDataValue {
public:
    virtual ~UserDataValue() = default;
    virtual AutoPtr<char> toString() const = 0;
};

class QtUserDataSet {
public:
    // A new atom of type `id` attached as the last child of the 'udta' atom `parent`, or null.
    static BaseQtAtom* createUserAtom(BaseQtAtom const* parent, QtAtomIdType id);
};
