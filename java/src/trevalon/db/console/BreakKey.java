package trevalon.db.console;

import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Proxy;

/**
 * Ctrl-C: breaks the statement that runs; when none does, it ends the program, or does what a
 * prompt does instead, where it would lose what is not committed.
 *
 * <p>The action runs under this object's lock: {@link #setRunning} waits for it, so that no break
 * comes late and hits the next statement.
 */
final class BreakKey {
    private static final int EXIT_INTERRUPTED = 130;

    private final Runnable whenIdle;

    /** What runs now, null for nothing; guarded by this object's lock. */
    private Runnable running;

    /** A key that ends the program when nothing runs. */
    BreakKey() {
        this(() -> Runtime.getRuntime().exit(EXIT_INTERRUPTED));
    }

    BreakKey(Runnable whenIdle) {
        this.whenIdle = whenIdle;
        install();
    }

    /** Names what Ctrl-C shall stop from now on; null when nothing runs. */
    synchronized void setRunning(Runnable breakAction) {
        running = breakAction;
    }

    synchronized void pressed() {
        (running == null ? whenIdle : running).run();
    }

    /**
     * Signals are no part of the Java platform, though every JVM of interest has this class; on one
     * that has not, Ctrl-C keeps its usual meaning.
     */
    private void install() {
        try {
            Class<?> signal = Class.forName("sun.misc.Signal");
            Class<?> handler = Class.forName("sun.misc.SignalHandler");
            Object onSignal =
                    Proxy.newProxyInstance(
                            BreakKey.class.getClassLoader(),
                            new Class<?>[] {handler},
                            (proxy, method, arguments) -> {
                                if (method.getName().equals("handle")) {
                                    pressed();
                                }
                                return null;
                            });
            Object interrupt = signal.getConstructor(String.class).newInstance("INT");
            signal.getMethod("handle", signal, handler).invoke(null, interrupt, onSignal);
        } catch (ClassNotFoundException
                | NoSuchMethodException
                | InstantiationException
                | IllegalAccessException
                | InvocationTargetException e) {
            // Without signals there is nothing to install, and nothing that the user could do.
            return;
        }
    }
}
