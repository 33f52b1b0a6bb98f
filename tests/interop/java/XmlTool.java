// XML signatures as Java's own XML-DSig judges them.
//   verify DOCUMENT...   one line for each: "valid SUBJECT", "invalid" or "broken WHY". The key is that of the first
//                        certificate in the signature.

import java.io.File;
import java.security.cert.X509Certificate;
import javax.xml.crypto.dsig.XMLSignature;
import javax.xml.crypto.dsig.XMLSignatureFactory;
import javax.xml.crypto.dsig.dom.DOMValidateContext;
import javax.xml.crypto.dsig.keyinfo.X509Data;
import javax.xml.parsers.DocumentBuilder;
import javax.xml.parsers.DocumentBuilderFactory;
import org.w3c.dom.Document;
import org.w3c.dom.Element;
import org.w3c.dom.NodeList;

public final class XmlTool {
    private static final String XADES = "http://uri.etsi.org/01903/v1.3.2#";

    private static Document read(String file) throws Exception {
        DocumentBuilderFactory factory = DocumentBuilderFactory.newInstance();
        factory.setNamespaceAware(true);
        DocumentBuilder builder = factory.newDocumentBuilder();
        builder.setErrorHandler(null);
        return builder.parse(new File(file));
    }

    private static X509Certificate certificateIn(XMLSignature signature) {
        X509Data data = (X509Data) signature.getKeyInfo().getContent().get(0);
        return (X509Certificate) data.getContent().get(0);
    }

    private static String judge(String file) throws Exception {
        Document document = read(file);
        NodeList properties = document.getElementsByTagNameNS(XADES, "SignedProperties");
        for (int i = 0; i < properties.getLength(); ++i) {
            ((Element) properties.item(i)).setIdAttribute("Id", true); // no schema says so here
        }
        Element element = (Element) document.getElementsByTagNameNS(XMLSignature.XMLNS, "Signature").item(0);
        XMLSignatureFactory factory = XMLSignatureFactory.getInstance("DOM");
        X509Certificate certificate =
            certificateIn(factory.unmarshalXMLSignature(new DOMValidateContext(new EmptySelector(), element)));
        DOMValidateContext context = new DOMValidateContext(certificate.getPublicKey(), element);
        for (int i = 0; i < properties.getLength(); ++i) {
            context.setIdAttributeNS((Element) properties.item(i), null, "Id");
        }
        boolean valid = factory.unmarshalXMLSignature(context).validate(context);
        return valid ? "valid " + certificate.getSubjectX500Principal().getName() : "invalid";
    }

    /// Reading a signature requires a selector of keys; nothing is selected.
    private static final class EmptySelector extends javax.xml.crypto.KeySelector {
        @Override
        public javax.xml.crypto.KeySelectorResult select(javax.xml.crypto.dsig.keyinfo.KeyInfo keyInfo,
            Purpose purpose, javax.xml.crypto.AlgorithmMethod method, javax.xml.crypto.XMLCryptoContext context) {
            return () -> null;
        }
    }

    public static void main(String[] arguments) {
        for (int i = 1; i < arguments.length; ++i) {
            try {
                System.out.println(judge(arguments[i]));
            } catch (Exception e) {
                System.out.println("broken " + e.getMessage());
            }
        }
    }
}
