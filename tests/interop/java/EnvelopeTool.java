// Enveloped messages (RFC 5652, 6; RFC 5083) as Bouncy Castle makes and opens them.
//   make NAME KIND               a key (NAME.p8, PKCS#8) and a self-signed certificate (NAME.cer); gost256, gost512, rsa
//   run COMMAND...               any number of
//     encrypt CERTIFICATE CIPHER CONTENT OUT    prints "made" or "cannot WHY"; key transport
//     agree CERTIFICATE CIPHER CONTENT OUT      the same with key agreement, for GOST keys
//     decrypt NAME KIND MESSAGE OUT             prints "opened" or "refused WHY"
// CIPHER: gost28147-89, aes-256-cbc, aes-256-gcm or 3des-cbc.

import java.math.BigInteger;
import java.nio.file.Files;
import java.nio.file.Path;
import java.security.KeyFactory;
import java.security.KeyPair;
import java.security.KeyPairGenerator;
import java.security.PrivateKey;
import java.security.SecureRandom;
import java.security.Security;
import java.security.cert.CertificateFactory;
import java.security.cert.X509Certificate;
import java.security.spec.ECGenParameterSpec;
import java.security.spec.PKCS8EncodedKeySpec;
import java.util.Date;
import java.util.Map;
import org.bouncycastle.asn1.ASN1ObjectIdentifier;
import org.bouncycastle.asn1.cms.CMSObjectIdentifiers;
import org.bouncycastle.asn1.cms.ContentInfo;
import org.bouncycastle.asn1.cryptopro.ECGOST3410NamedCurves;
import org.bouncycastle.asn1.cryptopro.GOST3410PublicKeyAlgParameters;
import org.bouncycastle.asn1.rosstandart.RosstandartObjectIdentifiers;
import org.bouncycastle.asn1.x500.X500Name;
import org.bouncycastle.asn1.x509.SubjectPublicKeyInfo;
import org.bouncycastle.cert.X509CertificateHolder;
import org.bouncycastle.cert.jcajce.JcaX509v3CertificateBuilder;
import org.bouncycastle.cms.CMSAlgorithm;
import org.bouncycastle.cms.CMSAuthEnvelopedData;
import org.bouncycastle.cms.CMSAuthEnvelopedDataGenerator;
import org.bouncycastle.cms.CMSEnvelopedData;
import org.bouncycastle.cms.CMSEnvelopedDataGenerator;
import org.bouncycastle.cms.CMSProcessableByteArray;
import org.bouncycastle.cms.KeyAgreeRecipientInformation;
import org.bouncycastle.cms.Recipient;
import org.bouncycastle.cms.RecipientInfoGenerator;
import org.bouncycastle.cms.RecipientInformation;
import org.bouncycastle.cms.RecipientInformationStore;
import org.bouncycastle.cms.jcajce.JceCMSContentEncryptorBuilder;
import org.bouncycastle.cms.jcajce.JceKeyAgreeEnvelopedRecipient;
import org.bouncycastle.cms.jcajce.JceKeyAgreeRecipientInfoGenerator;
import org.bouncycastle.cms.jcajce.JceKeyTransAuthEnvelopedRecipient;
import org.bouncycastle.cms.jcajce.JceKeyTransEnvelopedRecipient;
import org.bouncycastle.cms.jcajce.JceKeyTransRecipientInfoGenerator;
import org.bouncycastle.jce.provider.BouncyCastleProvider;
import org.bouncycastle.operator.OutputAEADEncryptor;
import org.bouncycastle.operator.jcajce.JcaContentSignerBuilder;

public final class EnvelopeTool {
    private static final long DAY = 24L * 60 * 60 * 1000;

    /// `parameters`: the curve's name, or the size of an RSA modulus.
    private record Kind(String keys, String parameters, String signature) {}

    private static final Map<String, Kind> KINDS = Map.of(
        "gost256", new Kind("ECGOST3410-2012", "Tc26-Gost-3410-12-256-paramSetA",
            "GOST3411-2012-256WITHECGOST3410-2012-256"),
        "gost512", new Kind("ECGOST3410-2012", "Tc26-Gost-3410-12-512-paramSetA",
            "GOST3411-2012-512WITHECGOST3410-2012-512"),
        "rsa", new Kind("RSA", "2048", "SHA256withRSA"));

    private static final Map<String, ASN1ObjectIdentifier> CIPHERS = Map.of(
        "gost28147-89", CMSAlgorithm.GOST28147_GCFB, "aes-256-cbc", CMSAlgorithm.AES256_CBC,
        "aes-256-gcm", CMSAlgorithm.AES256_GCM, "3des-cbc", CMSAlgorithm.DES_EDE3_CBC);

    private static void make(String name, String kindName) throws Exception {
        Kind kind = KINDS.get(kindName);
        KeyPairGenerator generator = KeyPairGenerator.getInstance(kind.keys(), "BC");
        if (kind.keys().equals("RSA")) {
            generator.initialize(Integer.parseInt(kind.parameters()));
        } else {
            generator.initialize(new ECGenParameterSpec(kind.parameters()));
        }
        KeyPair pair = generator.generateKeyPair();
        X500Name subject = new X500Name("CN=Castle " + kindName);
        Date now = new Date();
        X509CertificateHolder certificate = new JcaX509v3CertificateBuilder(subject,
            BigInteger.valueOf(now.getTime()), new Date(now.getTime() - DAY), new Date(now.getTime() + 30 * DAY),
            subject, pair.getPublic())
            .build(new JcaContentSignerBuilder(kind.signature()).setProvider("BC").build(pair.getPrivate()));
        Files.write(Path.of(name + ".p8"), pair.getPrivate().getEncoded());
        Files.write(Path.of(name + ".cer"), certificate.getEncoded());
    }

    /// A key pair of the sender's on the recipient's curve, and CryptoPro key wrap.
    private static RecipientInfoGenerator agreement(X509Certificate recipient) throws Exception {
        SubjectPublicKeyInfo info = SubjectPublicKeyInfo.getInstance(recipient.getPublicKey().getEncoded());
        boolean is512 = info.getAlgorithm().getAlgorithm().equals(RosstandartObjectIdentifiers.id_tc26_gost_3410_12_512);
        KeyPairGenerator pairs = KeyPairGenerator.getInstance("ECGOST3410-2012", "BC");
        // By the curve's name, as its users do: a CryptoPro curve then names the digest of 1994.
        pairs.initialize(new ECGenParameterSpec(ECGOST3410NamedCurves.getName(
            GOST3410PublicKeyAlgParameters.getInstance(info.getAlgorithm().getParameters()).getPublicKeyParamSet())));
        KeyPair pair = pairs.generateKeyPair();
        byte[] ukm = new byte[8];
        new SecureRandom().nextBytes(ukm);
        return new JceKeyAgreeRecipientInfoGenerator(
            is512 ? CMSAlgorithm.ECDHGOST3410_2012_512 : CMSAlgorithm.ECDHGOST3410_2012_256, pair.getPrivate(),
            pair.getPublic(), CMSAlgorithm.GOST28147_CRYPTOPRO_WRAP)
            .addRecipient(recipient).setUserKeyingMaterial(ukm).setProvider("BC");
    }

    private static String encrypt(String certificate, boolean agrees, String cipher, String content, String out)
        throws Exception {
        X509Certificate recipient = (X509Certificate) CertificateFactory.getInstance("X.509", "BC")
            .generateCertificate(Files.newInputStream(Path.of(certificate)));
        RecipientInfoGenerator generator = agrees ? agreement(recipient)
                                                  : new JceKeyTransRecipientInfoGenerator(recipient).setProvider("BC");
        var data = new CMSProcessableByteArray(Files.readAllBytes(Path.of(content)));
        var encryptor = new JceCMSContentEncryptorBuilder(CIPHERS.get(cipher)).setProvider("BC").build();
        byte[] message;
        if (encryptor instanceof OutputAEADEncryptor authenticating) {
            var maker = new CMSAuthEnvelopedDataGenerator();
            maker.addRecipientInfoGenerator(generator);
            message = maker.generate(data, authenticating).getEncoded();
        } else {
            var maker = new CMSEnvelopedDataGenerator();
            maker.addRecipientInfoGenerator(generator);
            message = maker.generate(data, encryptor).getEncoded();
        }
        Files.write(Path.of(out), message);
        return "made";
    }

    private static String decrypt(String name, String kind, String message, String out) throws Exception {
        PrivateKey key = KeyFactory.getInstance(KINDS.get(kind).keys(), "BC")
            .generatePrivate(new PKCS8EncodedKeySpec(Files.readAllBytes(Path.of(name + ".p8"))));
        byte[] octets = Files.readAllBytes(Path.of(message));
        boolean authenticated =
            ContentInfo.getInstance(octets).getContentType().equals(CMSObjectIdentifiers.authEnvelopedData);
        RecipientInformationStore recipients = authenticated ? new CMSAuthEnvelopedData(octets).getRecipientInfos()
                                                             : new CMSEnvelopedData(octets).getRecipientInfos();
        RecipientInformation recipient = recipients.getRecipients().iterator().next();
        Recipient opener = recipient instanceof KeyAgreeRecipientInformation
            ? new JceKeyAgreeEnvelopedRecipient(key).setProvider("BC")
            : authenticated ? new JceKeyTransAuthEnvelopedRecipient(key).setProvider("BC")
                            : new JceKeyTransEnvelopedRecipient(key).setProvider("BC");
        Files.write(Path.of(out), recipient.getContent(opener));
        return "opened";
    }

    private static String command(String[] words, int at) {
        boolean agrees = words[at].equals("agree");
        boolean encrypts = agrees || words[at].equals("encrypt");
        try {
            return encrypts ? encrypt(words[at + 1], agrees, words[at + 2], words[at + 3], words[at + 4])
                            : decrypt(words[at + 1], words[at + 2], words[at + 3], words[at + 4]);
        } catch (Exception refusal) {
            return (encrypts ? "cannot " : "refused ") + refusal.getMessage();
        }
    }

    public static void main(String[] arguments) throws Exception {
        Security.addProvider(new BouncyCastleProvider());
        if (arguments[0].equals("make")) {
            for (int i = 1; i + 1 < arguments.length; i += 2) {
                make(arguments[i], arguments[i + 1]);
            }
            return;
        }
        for (int i = 1; i + 4 < arguments.length; i += 5) {
            System.out.println(command(arguments, i));
        }
    }
}
