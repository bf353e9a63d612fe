package trevalon.db;

import trevalon.db.console.ConsoleCases;
import trevalon.db.oci.BindCases;
import trevalon.db.oci.ConnectionCases;
import trevalon.db.oci.LobCases;
import trevalon.db.oci.QueryCases;
import trevalon.db.oci.TestRun;

/** Runs every case; exits with 1 when one failed. */
public final class AllCases {
    public static void main(String[] arguments) {
        TestRun tests = new TestRun();
        // The queries make the tables that the later cases use.
        QueryCases.addTo(tests);
        BindCases.addTo(tests);
        LobCases.addTo(tests);
        ConnectionCases.addTo(tests);
        ConsoleCases.addTo(tests);
        System.out.println(tests.failures() + " failed");
        System.exit(tests.failures() == 0 ? 0 : 1);
    }
}
