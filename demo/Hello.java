import java.lang.management.ManagementFactory;

/** Prints what the launcher handed it: options, system properties and arguments; on request
 * writes megabytes to standard error, throws from main or ends with a status. */
public class Hello {
    public static void main(String[] args) {
        System.out.println("Hello from Java " + System.getProperty("java.version")
                + " (" + System.getProperty("java.home") + ")");
        System.out.println("greeting: " + System.getProperty("hello.greeting"));
        for (String key : new String[] {"fenmo.moduleName", "bwk.jreBundle", "bwk.tarFile", "bwk.service",
                "bwk.configFileId", "hello.from", "java.class.path"}) {
            String value = System.getProperty(key);
            if (value != null) System.out.println("property " + key + "=" + value);
        }
        for (String option : ManagementFactory.getRuntimeMXBean().getInputArguments()) {
            System.out.println("option " + option);
        }
        System.out.println("working directory: " + System.getProperty("user.dir"));
        int status = 0;
        for (int i = 0; i < args.length; i++) {
            System.out.println("arg[" + i + "] <" + args[i] + ">");
            if (args[i].startsWith("--exit=")) status = Integer.parseInt(args[i].substring(7));
            if (args[i].startsWith("--stderr-megabytes=")) writeToStandardError(Integer.parseInt(args[i].substring(19)));
            if (args[i].startsWith("--throw=")) throw new IllegalStateException(args[i].substring(8),
                    new java.io.FileNotFoundException("hello.conf"));
        }
        System.out.flush();
        if (status != 0) System.exit(status);
    }

    /** `megabytes` MiB in lines of 64 bytes, each beginning with its number. */
    private static void writeToStandardError(int megabytes) {
        java.io.OutputStream err = new java.io.FileOutputStream(java.io.FileDescriptor.err);
        byte[] block = new byte[64 * 1024];
        try {
            for (int n = 0, line = 0; n < megabytes * 16; n++) {
                for (int at = 0; at < block.length; at += 64, line++) {
                    java.util.Arrays.fill(block, at, at + 63, (byte) '.');
                    for (int d = 7, v = line; d >= 0; d--, v /= 10) block[at + d] = (byte) ('0' + v % 10);
                    block[at + 63] = '\n';
                }
                err.write(block);
            }
        } catch (java.io.IOException e) {
            throw new java.io.UncheckedIOException(e);
        }
    }
}
