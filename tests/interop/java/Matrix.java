// Many calls of the other programs in one virtual machine: cms WORDS... -- xml WORDS... -- ...

import java.util.ArrayList;
import java.util.List;

public final class Matrix {
    private static void call(List<String> words) throws Exception {
        String[] arguments = words.subList(1, words.size()).toArray(new String[0]);
        if (words.get(0).equals("cms")) {
            CmsTool.main(arguments);
        } else {
            XmlTool.main(arguments);
        }
    }

    public static void main(String[] arguments) throws Exception {
        List<String> words = new ArrayList<>();
        for (String word : arguments) {
            if (word.equals("--")) {
                call(words);
                words.clear();
            } else {
                words.add(word);
            }
        }
        call(words);
    }
}
