#!/usr/bin/env bash
# Writes the sources of the benchmark's Swing program into $1: a window of tables, a tree,
# an HTML pane and menus, shown after $2 small classes of its own have been loaded and run;
# the program ends itself shortly after its window is shown.
set -euo pipefail
out=$1 count=${2:-2000}
mkdir -p "$out/bench"
groups=$(( (count + 99) / 100 ))
for ((g = 0; g < groups; g++)); do
  {
    echo "package bench; final class Group$g { static long run() { long s = 0;"
    for ((i = g * 100; i < (g + 1) * 100 && i < count; i++)); do echo "  s += new Step$i().apply($i);"; done
    echo "  return s; } }"
  } > "$out/bench/Group$g.java"
  for ((i = g * 100; i < (g + 1) * 100 && i < count; i++)); do
    echo "package bench; final class Step$i { long apply(long x) { return (x * $i) ^ (x >>> 3) ^ \"step$i\".hashCode(); } }" > "$out/bench/Step$i.java"
  done
done
{
  echo "package bench; import javax.swing.*; import java.awt.*;"
  echo "public final class Main { public static void main(String[] args) throws Exception { long sum = 0;"
  for ((g = 0; g < groups; g++)); do echo "  sum += Group$g.run();"; done
  cat <<'JAVA'
  final long total = sum;
  SwingUtilities.invokeAndWait(() -> {
    JFrame frame = new JFrame("Bench " + total);
    JMenuBar bar = new JMenuBar();
    for (String name : new String[] {"File", "Edit", "View", "Help"}) {
      JMenu menu = new JMenu(name);
      for (int i = 0; i < 8; i++) menu.add(new JMenuItem(name + " item " + i));
      bar.add(menu);
    }
    frame.setJMenuBar(bar);
    JTabbedPane tabs = new JTabbedPane();
    tabs.add("Table", new JScrollPane(new JTable(60, 8)));
    tabs.add("Tree", new JScrollPane(new JTree()));
    tabs.add("Text", new JScrollPane(new JEditorPane("text/html",
        "<html><body><h1>Bench</h1><p>Some <b>rich</b> text.</p><ul><li>one</li><li>two</li></ul></body></html>")));
    JPanel form = new JPanel(new GridLayout(0, 2));
    form.add(new JLabel("Name")); form.add(new JTextField(20));
    form.add(new JLabel("Kind")); form.add(new JComboBox<>(new String[] {"a", "b", "c"}));
    form.add(new JCheckBox("Checked")); form.add(new JSpinner());
    form.add(new JSlider()); form.add(new JProgressBar());
    tabs.add("Form", form);
    frame.add(new JToolBar(), BorderLayout.NORTH);
    frame.add(tabs, BorderLayout.CENTER);
    frame.setSize(640, 480);
    frame.setVisible(true);
    new Timer(300, e -> System.exit(0)).start();
  });
} }
JAVA
} > "$out/bench/Main.java"
