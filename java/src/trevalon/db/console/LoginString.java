package trevalon.db.console;

/** USER/PASSWORD@NAME as it is typed. */
final class LoginString {
    final String user;

    /** Null where it has to be asked for. */
    final String password;

    final String server;

    private LoginString(String user, String password, String server) {
        this.user = user;
        this.password = password;
        this.server = server;
    }

    /**
     * Takes the text apart: a database's name may be a path, so the user ends at the first slash,
     * and the password, which may hold an at sign, at the last one. "/@NAME" is the login that the
     * operating system vouches for.
     */
    static LoginString parse(String text) throws UsageException {
        int at = text.lastIndexOf('@');
        // The last at sign ends the account, so a database's name cannot hold one.
        if (at < 1 || at + 1 == text.length()) {
            throw new UsageException("Not a login: " + text);
        }
        String account = text.substring(0, at);
        String server = text.substring(at + 1);
        if (account.equals("/")) {
            return new LoginString("/", "", server);
        }
        int slash = account.indexOf('/');
        if (slash == 0) {
            throw new UsageException("The user is missing: " + text);
        }
        return slash < 0
                ? new LoginString(account, null, server)
                : new LoginString(
                        account.substring(0, slash), account.substring(slash + 1), server);
    }
}
