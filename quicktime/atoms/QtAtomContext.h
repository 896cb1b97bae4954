// What an atom asks of the tree above it, without knowing the classes that answer: the root's file,
// cache budget and disk-backed arrays, and the movie's resize reasons. QtAtomRoot and QtAtomMoov
// (layout/) implement these; the atom base and the folders above atoms/ reach them through
// BaseQtAtom::findRootContext() and findMovieContext(), so no include points up at layout/.
#pragma once

#include <cstdint>

#include "framework/AutoRefPtr.h"
#include "framework/BasicFileIO.h"
#include "quicktime/atoms/QtTreeSize.h"

class VirtualBase;

// The root of an atom tree. Any thread may call it; the implementation guards its own state.
class QtRootContext {
  public:
    // Kinds of in-memory bytes reported to the root's cache accounting.
    enum CacheBytesType { TableBytes = 0, EssenceBytes = 1 };

    // A new reference to the movie's file (null without one).
    virtual AutoRefPtr<BasicFileIO> getFp() const = 0;
    // How many cache blocks a table may use.
    virtual int getSizeAdvice() const = 0;
    // Accounts `delta` more bytes of a kind held in memory; false when the budget refuses them.
    virtual bool adjustCache(CacheBytesType kind, int32_t delta) const = 0;
    // Routes the reservation events of a disk-backed array to the root.
    virtual void addVirtualBase(VirtualBase& array) const = 0;

  protected:
    ~QtRootContext() = default;
};

// The movie an atom belongs to: where its atoms leave the reasons it must be given more room.
class QtMovieContext {
  public:
    virtual QtResizeReq getResizeNeeded() const = 0;
    virtual void addResizeNeeded(QtResizeReq::Type type) const = 0;

  protected:
    ~QtMovieContext() = default;
};

// Keeps a copy of an atom's place for another thread (a reservation desk): the atom tells it its
// offset and size after every change of either, on the owner's thread.
class QtPlaceWatcher {
  public:
    virtual void setPlace(unsigned long offset, unsigned long size) = 0;

  protected:
    ~QtPlaceWatcher() = default;
};
