import java.lang.management.ManagementFactory;

/** Prints what the launcher handed it: options, system properties and arguments. */
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
        }
        System.out.flush();
        if (status != 0) System.exit(status);
    }
}
