// CMS signatures as Bouncy Castle makes and judges them. Version 1.72 does all of it for GOST R 34.10-2012 too; its
// signers state the key's own OID (1.2.643.7.1.1.1.x) as the signature algorithm, and name it once more in the signed
// attribute of RFC 6211.
//   sign KIND CONTENT FOLDER            a new key and certificate of KIND (gost256, gost512 or rsa), and one signature
//                                       of every shape below in FOLDER; an RSA key signs one with RSASSA-PSS as well
//   verify SIGNATURE [CONTENT] ...      pairs; CONTENT is "-" for an attached signature. One line for each:
//                                       "valid SUBJECT", "invalid" or "broken WHY"

import java.io.ByteArrayOutputStream;
import java.io.OutputStream;
import java.math.BigInteger;
import java.nio.file.Files;
import java.nio.file.Path;
import java.security.KeyPair;
import java.security.KeyPairGenerator;
import java.security.PrivateKey;
import java.security.Security;
import java.security.spec.ECGenParameterSpec;
import java.util.ArrayList;
import java.util.Collection;
import java.util.Date;
import java.util.List;
import java.util.Map;
import org.bouncycastle.asn1.ASN1Encoding;
import org.bouncycastle.asn1.x500.X500Name;
import org.bouncycastle.asn1.x509.Extension;
import org.bouncycastle.asn1.x509.SubjectKeyIdentifier;
import org.bouncycastle.cert.X509CertificateHolder;
import org.bouncycastle.cert.jcajce.JcaX509CertificateConverter;
import org.bouncycastle.cert.jcajce.JcaX509ExtensionUtils;
import org.bouncycastle.cert.jcajce.JcaX509v3CertificateBuilder;
import org.bouncycastle.cms.CMSException;
import org.bouncycastle.cms.CMSProcessableByteArray;
import org.bouncycastle.cms.CMSSignedData;
import org.bouncycastle.cms.CMSSignedDataGenerator;
import org.bouncycastle.cms.CMSSignedDataStreamGenerator;
import org.bouncycastle.cms.CMSSignerDigestMismatchException;
import org.bouncycastle.cms.SignerInfoGenerator;
import org.bouncycastle.cms.SignerInformation;
import org.bouncycastle.cms.jcajce.JcaSignerInfoGeneratorBuilder;
import org.bouncycastle.cms.jcajce.JcaSimpleSignerInfoVerifierBuilder;
import org.bouncycastle.jce.provider.BouncyCastleProvider;
import org.bouncycastle.operator.ContentSigner;
import org.bouncycastle.operator.jcajce.JcaContentSignerBuilder;
import org.bouncycastle.operator.jcajce.JcaDigestCalculatorProviderBuilder;

public final class CmsTool {
    private static final long DAY = 24L * 60 * 60 * 1000;

    /// `parameters`: the curve's name, or the size of an RSA modulus.
    private record Kind(String keys, String parameters, String signature) {}

    private static final Map<String, Kind> KINDS = Map.of(
        "gost256", new Kind("ECGOST3410-2012", "Tc26-Gost-3410-12-256-paramSetA",
            "GOST3411-2012-256WITHECGOST3410-2012-256"),
        "gost512", new Kind("ECGOST3410-2012", "Tc26-Gost-3410-12-512-paramSetA",
            "GOST3411-2012-512WITHECGOST3410-2012-512"),
        "rsa", new Kind("RSA", "2048", "SHA256withRSA"));

    /// `attributes`: signed ones; without them the signature is over the content itself. `ber`: indefinite lengths,
    /// content in pieces; otherwise DER.
    private record Shape(String file, boolean attached, boolean attributes, boolean ber) {
        boolean byKeyId() {
            return file.equals("key-id");
        }

        boolean pss() {
            return file.equals("pss");
        }
    }

    private static List<Shape> shapes() {
        List<Shape> shapes = new ArrayList<>();
        for (boolean attached : new boolean[] {true, false}) {
            for (boolean attributes : new boolean[] {true, false}) {
                for (boolean ber : new boolean[] {true, false}) {
                    shapes.add(new Shape((attached ? "attached" : "detached") + (attributes ? "-attributes" : "-plain")
                        + (ber ? "-ber" : "-der"), attached, attributes, ber));
                }
            }
        }
        shapes.add(new Shape("key-id", true, true, false));
        shapes.add(new Shape("pss", true, true, false));
        return shapes;
    }

    private static KeyPair keyPair(Kind kind) throws Exception {
        KeyPairGenerator generator = KeyPairGenerator.getInstance(kind.keys(), "BC");
        if (kind.keys().equals("RSA")) {
            generator.initialize(Integer.parseInt(kind.parameters()));
        } else {
            generator.initialize(new ECGenParameterSpec(kind.parameters()));
        }
        return generator.generateKeyPair();
    }

    /// A signer with a self-signed certificate: these tests are about the signature, not about a chain.
    private record Signer(PrivateKey key, String algorithm, X509CertificateHolder certificate) {
        static Signer make(String name) throws Exception {
            Kind kind = KINDS.get(name);
            KeyPair pair = keyPair(kind);
            X500Name subject = new X500Name("CN=Castle " + name);
            Date now = new Date();
            return new Signer(pair.getPrivate(), kind.signature(), new JcaX509v3CertificateBuilder(subject,
                BigInteger.valueOf(now.getTime()), new Date(now.getTime() - DAY), new Date(now.getTime() + 30 * DAY),
                subject, pair.getPublic())
                .addExtension(Extension.subjectKeyIdentifier, false,
                    new JcaX509ExtensionUtils().createSubjectKeyIdentifier(pair.getPublic()))
                .build(new JcaContentSignerBuilder(kind.signature()).setProvider("BC").build(pair.getPrivate())));
        }

        SignerInfoGenerator generator(Shape shape) throws Exception {
            ContentSigner signer = new JcaContentSignerBuilder(shape.pss() ? "SHA256withRSAandMGF1" : algorithm)
                .setProvider("BC").build(key);
            JcaSignerInfoGeneratorBuilder builder = new JcaSignerInfoGeneratorBuilder(
                new JcaDigestCalculatorProviderBuilder().setProvider("BC").build())
                .setDirectSignature(!shape.attributes());
            return shape.byKeyId()
                ? builder.build(signer, SubjectKeyIdentifier.fromExtensions(certificate.getExtensions())
                    .getKeyIdentifier())
                : builder.build(signer, new JcaX509CertificateConverter().setProvider("BC")
                    .getCertificate(certificate));
        }
    }

    private static byte[] signature(Signer signer, Shape shape, byte[] content) throws Exception {
        if (!shape.ber()) {
            CMSSignedDataGenerator generator = new CMSSignedDataGenerator();
            generator.addSignerInfoGenerator(signer.generator(shape));
            generator.addCertificate(signer.certificate());
            return generator.generate(new CMSProcessableByteArray(content), shape.attached())
                .toASN1Structure().getEncoded(ASN1Encoding.DER);
        }
        CMSSignedDataStreamGenerator generator = new CMSSignedDataStreamGenerator();
        generator.setBufferSize(7);
        generator.addSignerInfoGenerator(signer.generator(shape));
        generator.addCertificate(signer.certificate());
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        try (OutputStream stream = generator.open(out, shape.attached())) {
            stream.write(content);
        }
        return out.toByteArray();
    }

    private static String verdict(String file, String content) throws Exception {
        byte[] octets = Files.readAllBytes(Path.of(file));
        CMSSignedData message;
        try {
            message = content.equals("-")
                ? new CMSSignedData(octets)
                : new CMSSignedData(new CMSProcessableByteArray(Files.readAllBytes(Path.of(content))), octets);
        } catch (CMSException refusal) {
            return "broken " + refusal.getMessage();
        }
        StringBuilder subjects = new StringBuilder();
        for (SignerInformation signer : message.getSignerInfos()) {
            @SuppressWarnings("unchecked")
            Collection<X509CertificateHolder> found = message.getCertificates().getMatches(signer.getSID());
            if (found.size() != 1) {
                return "broken " + found.size() + " certificates for a signer";
            }
            X509CertificateHolder certificate = found.iterator().next();
            try {
                if (!signer.verify(new JcaSimpleSignerInfoVerifierBuilder().setProvider("BC").build(certificate))) {
                    return "invalid";
                }
            } catch (CMSSignerDigestMismatchException refusal) {
                return "invalid"; // the content is not what the signed attributes tell
            } catch (CMSException refusal) {
                return "broken " + refusal.getMessage();
            }
            subjects.append(' ').append(certificate.getSubject());
        }
        return subjects.isEmpty() ? "broken no signer" : "valid" + subjects;
    }

    public static void main(String[] arguments) throws Exception {
        Security.addProvider(new BouncyCastleProvider());
        if (arguments[0].equals("sign")) {
            Signer signer = Signer.make(arguments[1]);
            byte[] content = Files.readAllBytes(Path.of(arguments[2]));
            for (Shape shape : shapes()) {
                if (!shape.pss() || arguments[1].equals("rsa")) {
                    Files.write(Path.of(arguments[3], shape.file()), signature(signer, shape, content));
                }
            }
            return;
        }
        for (int i = 1; i + 1 < arguments.length; i += 2) {
            System.out.println(verdict(arguments[i], arguments[i + 1]));
        }
    }
}
