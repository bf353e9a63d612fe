package trevalon.db.oci;

import java.util.BitSet;

/** Hands out the numbers 0 to size - 1, each to one holder at a time. Safe for many threads. */
final class SlotPool {
    private final BitSet taken = new BitSet();
    private final int size;
    private final int errorCode;
    private final String errorText;

    /**
     * @param errorCode Oracle's error number for an exhausted pool
     * @param errorText the text that goes with it
     */
    SlotPool(int size, int errorCode, String errorText) {
        this.size = size;
        this.errorCode = errorCode;
        this.errorText = errorText;
    }

    /** Takes the lowest free slot; what was given back last is often still warm. */
    synchronized int take() throws OciException {
        int slot = taken.nextClearBit(0);
        if (slot >= size) {
            throw new OciException(errorCode, errorText);
        }
        taken.set(slot);
        return slot;
    }

    /** Gives a slot back; one that nobody holds is a fault of the caller. */
    synchronized void give(int slot) {
        if (!taken.get(slot)) {
            // Silently accepted, it would put two holders on one native record.
            throw new IllegalStateException("Slot " + slot + " was given back twice");
        }
        taken.clear(slot);
    }

    synchronized int inUse() {
        return taken.cardinality();
    }
}
