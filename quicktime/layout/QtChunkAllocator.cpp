#include "quicktime/layout/QtChunkAllocator.h"

#include "framework/Messages.h"
#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomRoot.h"

bool QtChunkAllocator::bigEnough(Available& available, unsigned long size, QtAtomRoot const* root) {
    if (available.chunk.size >= size) return true;
    if (!available.mdat) {
        if (!root) return false;
        available.mdat = new QtAtomMdat(root, size);
        available.chunk.size = size;
        return true;
    }
    if (!available.mdat->grow(size - available.chunk.size)) return false;
    available.chunk.size = size;
    return true;
}

QtChunkAllocator::Available& QtChunkAllocator::find(unsigned long size, QtAtomRoot const* root) {
    for (auto entry = m_available.begin(); entry != m_available.end();) {
        if (bigEnough(*entry, size, root)) return *entry;
        // Room that can neither serve nor grow is dropped once it is used up.
        if (entry->chunk.size == 0)
            entry = m_available.erase(entry);
        else
            ++entry;
    }
    Available& fresh = m_available.emplace_back();
    if (!bigEnough(fresh, size, root))
        errorMsg("QtChunkAllocator::find: failed for %s\n", root ? root->getMoviePath() : "?");
    return fresh;
}

QtChunkAllocator::Chunk QtChunkAllocator::alloc(unsigned long size, QtAtomRoot const* root) {
    Available& available = find(size, root);
    if (!available.mdat || available.chunk.size < size) return Chunk();
    Chunk chunk{available.mdat->getDataOffset() + available.chunk.offset, size};
    available.chunk -= size;
    return chunk;
}

void QtChunkAllocator::addMdat(QtAtomMdat const* mdat) {
    Available& added = m_available.emplace_back();
    added.mdat = mdat;
    added.chunk.offset = mdat->getSize() - mdat->getHeaderSize();
}
