// XML signatures as Java's own XML-DSig makes and judges them.
//   sign DOCUMENT KEY CERTIFICATE PLAIN PROPERTIES   an RSA key (PKCS#8, DER) and its certificate (DER) sign the document
//                        twice: enveloped signatures without and with a signed signing time (XAdES)
//   verify DOCUMENT...   one line for each: "valid SUBJECT", "invalid" or "broken WHY". The key is that of the first
//                        certificate in the signature.

import java.io.ByteArrayInputStream;
import java.io.File;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.security.KeyFactory;
import java.security.PrivateKey;
import java.security.cert.CertificateFactory;
import java.security.cert.X509Certificate;
import java.security.spec.PKCS8EncodedKeySpec;
import java.util.ArrayList;
import java.util.List;
import javax.xml.crypto.dom.DOMStructure;
import javax.xml.crypto.dsig.CanonicalizationMethod;
import javax.xml.crypto.dsig.DigestMethod;
import javax.xml.crypto.dsig.Reference;
import javax.xml.crypto.dsig.Transform;
import javax.xml.crypto.dsig.XMLObject;
import javax.xml.crypto.dsig.XMLSignature;
import javax.xml.crypto.dsig.XMLSignatureFactory;
import javax.xml.crypto.dsig.dom.DOMSignContext;
import javax.xml.crypto.dsig.dom.DOMValidateContext;
import javax.xml.crypto.dsig.keyinfo.KeyInfoFactory;
import javax.xml.crypto.dsig.keyinfo.X509Data;
import javax.xml.crypto.dsig.spec.C14NMethodParameterSpec;
import javax.xml.crypto.dsig.spec.TransformParameterSpec;
import javax.xml.parsers.DocumentBuilder;
import javax.xml.parsers.DocumentBuilderFactory;
import javax.xml.transform.TransformerFactory;
import javax.xml.transform.dom.DOMSource;
import javax.xml.transform.stream.StreamResult;
import org.w3c.dom.Document;
import org.w3c.dom.Element;
import org.w3c.dom.NodeList;

public final class XmlTool {
    private static final String XADES = "http://uri.etsi.org/01903/v1.3.2#";

    private static final String SIGNATURE_ID = "signature";
    private static final String PROPERTIES_ID = "properties";
    private static final String PROPERTIES = "<x:QualifyingProperties xmlns:x='" + XADES + "' Target='#" + SIGNATURE_ID
        + "'><x:SignedProperties Id='" + PROPERTIES_ID + "'><x:SignedSignatureProperties><x:SigningTime>"
        + "2026-11-20T12:00:00Z</x:SigningTime></x:SignedSignatureProperties></x:SignedProperties>"
        + "</x:QualifyingProperties>";

    private static DocumentBuilder builder() throws Exception {
        DocumentBuilderFactory factory = DocumentBuilderFactory.newInstance();
        factory.setNamespaceAware(true);
        DocumentBuilder builder = factory.newDocumentBuilder();
        builder.setErrorHandler(null);
        return builder;
    }

    private static Document read(String file) throws Exception {
        return builder().parse(new File(file));
    }

    private static Reference reference(XMLSignatureFactory factory, String uri, String type, List<Transform> transforms)
        throws Exception {
        return factory.newReference(uri, factory.newDigestMethod(DigestMethod.SHA256, null), transforms, type, null);
    }

    private static void sign(String file, PrivateKey key, X509Certificate certificate, boolean properties, String out)
        throws Exception {
        Document document = read(file);
        XMLSignatureFactory factory = XMLSignatureFactory.getInstance("DOM");
        Transform enveloped = factory.newTransform(Transform.ENVELOPED, (TransformParameterSpec) null);
        Transform exclusive = factory.newTransform(CanonicalizationMethod.EXCLUSIVE, (TransformParameterSpec) null);
        List<Reference> references = new ArrayList<>();
        references.add(reference(factory, "", null, List.of(enveloped, exclusive)));
        List<XMLObject> objects = new ArrayList<>();
        DOMSignContext context = new DOMSignContext(key, document.getDocumentElement());
        if (properties) {
            Document made = builder().parse(new ByteArrayInputStream(PROPERTIES.getBytes(StandardCharsets.UTF_8)));
            Element element = (Element) document.importNode(made.getDocumentElement(), true);
            context.setIdAttributeNS((Element) element.getFirstChild(), null, "Id");
            objects.add(factory.newXMLObject(List.of(new DOMStructure(element)), null, null, null));
            references.add(reference(factory, "#" + PROPERTIES_ID, "http://uri.etsi.org/01903#SignedProperties",
                List.of(exclusive)));
        }
        KeyInfoFactory keys = factory.getKeyInfoFactory();
        factory.newXMLSignature(
            factory.newSignedInfo(
                factory.newCanonicalizationMethod(CanonicalizationMethod.EXCLUSIVE, (C14NMethodParameterSpec) null),
                factory.newSignatureMethod("http://www.w3.org/2001/04/xmldsig-more#rsa-sha256", null), references),
            keys.newKeyInfo(List.of(keys.newX509Data(List.of(certificate)))), objects, SIGNATURE_ID, null)
            .sign(context);
        TransformerFactory.newInstance().newTransformer().transform(new DOMSource(document),
            new StreamResult(new File(out)));
    }

    private static void sign(String[] words) throws Exception {
        PrivateKey key = KeyFactory.getInstance("RSA")
            .generatePrivate(new PKCS8EncodedKeySpec(Files.readAllBytes(Path.of(words[2]))));
        X509Certificate certificate = (X509Certificate) CertificateFactory.getInstance("X.509")
            .generateCertificate(Files.newInputStream(Path.of(words[3])));
        sign(words[1], key, certificate, false, words[4]);
        sign(words[1], key, certificate, true, words[5]);
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

    public static void main(String[] arguments) throws Exception {
        if (arguments[0].equals("sign")) {
            sign(arguments);
            return;
        }
        for (int i = 1; i < arguments.length; ++i) {
            try {
                System.out.println(judge(arguments[i]));
            } catch (Exception e) {
                System.out.println("broken " + e.getMessage());
            }
        }
    }
}
