// QtAtomSorvanMarker: the version marker this library writes into its movies: a text atom of type
// 'skip' (so that readers pass over it) holding the library's version text.
#pragma once

#include "quicktime/atoms/QtAtomString.h"

class QtAtomSorvanMarker : public QtAtomString {
  public:
    static constexpr char const* kText = "Sorvan Media Archives - version 2 movie";

    explicit QtAtomSorvanMarker(BaseQtAtom const* parent);

    // The marker never belongs to user data: reports it as an error.
    void updateUserData(QtUserDataSet* set) const override;
};
