// PKCS#12 files as Bouncy Castle makes them: MakePfx KIND FILE PASSWORD
//   store      its own key store with a GOST R 34.10-2012 (256) key: BER, PBE of PKCS#12
//   rsa        the same with an RSA key
//   gost94     PBES2 with AES-256, the MAC of GOST R 34.11-94 with a key of RFC 7292, appendix B
//   two        the key store with two keys, called "first" and "second"
//   mismatch   a key with the certificate of another key
//   agreement  a GOST R 34.10-2012 (512) key and a certificate under the agreement's OID, as R 1323565.1.023 has them

import java.io.ByteArrayOutputStream;
import java.io.FileOutputStream;
import java.math.BigInteger;
import java.security.KeyPair;
import java.security.KeyPairGenerator;
import java.security.KeyStore;
import java.security.Security;
import java.security.cert.Certificate;
import java.security.spec.ECGenParameterSpec;
import java.util.Date;
import org.bouncycastle.asn1.ASN1ObjectIdentifier;
import org.bouncycastle.asn1.nist.NISTObjectIdentifiers;
import org.bouncycastle.asn1.cryptopro.CryptoProObjectIdentifiers;
import org.bouncycastle.asn1.pkcs.PrivateKeyInfo;
import org.bouncycastle.asn1.x500.X500Name;
import org.bouncycastle.asn1.x509.AlgorithmIdentifier;
import org.bouncycastle.asn1.x509.Extension;
import org.bouncycastle.asn1.x509.KeyUsage;
import org.bouncycastle.asn1.x509.SubjectPublicKeyInfo;
import org.bouncycastle.cert.X509CertificateHolder;
import org.bouncycastle.cert.X509v3CertificateBuilder;
import org.bouncycastle.cert.jcajce.JcaX509CertificateConverter;
import org.bouncycastle.crypto.digests.GOST3411Digest;
import org.bouncycastle.jce.provider.BouncyCastleProvider;
import org.bouncycastle.operator.OutputEncryptor;
import org.bouncycastle.operator.jcajce.JcaContentSignerBuilder;
import org.bouncycastle.pkcs.PKCS12PfxPdu;
import org.bouncycastle.pkcs.PKCS12PfxPduBuilder;
import org.bouncycastle.pkcs.PKCS12SafeBag;
import org.bouncycastle.pkcs.PKCS12SafeBagBuilder;
import org.bouncycastle.pkcs.bc.BcPKCS12MacCalculatorBuilder;
import org.bouncycastle.pkcs.jcajce.JcePKCSPBEOutputEncryptorBuilder;

public final class MakePfx {
    private static final long DAY = 24L * 60 * 60 * 1000;
    private static final ASN1ObjectIdentifier AGREEMENT_512 = new ASN1ObjectIdentifier("1.2.643.7.1.1.6.2");

    private static KeyPair keyPair(String kind) throws Exception {
        if (kind.equals("rsa")) {
            KeyPairGenerator generator = KeyPairGenerator.getInstance("RSA", "BC");
            generator.initialize(2048);
            return generator.generateKeyPair();
        }
        KeyPairGenerator generator = KeyPairGenerator.getInstance("ECGOST3410-2012", "BC");
        generator.initialize(new ECGenParameterSpec(
            kind.equals("agreement") ? "Tc26-Gost-3410-12-512-paramSetA" : "Tc26-Gost-3410-12-256-paramSetA"));
        return generator.generateKeyPair();
    }

    private static String signature(String kind) {
        if (kind.equals("rsa")) {
            return "SHA256withRSA";
        }
        String bits = kind.equals("agreement") ? "512" : "256";
        return "GOST3411-2012-" + bits + "WITHECGOST3410-2012-" + bits;
    }

    private static SubjectPublicKeyInfo publicKey(KeyPair pair, String kind) throws Exception {
        SubjectPublicKeyInfo info = SubjectPublicKeyInfo.getInstance(pair.getPublic().getEncoded());
        if (!kind.equals("agreement")) {
            return info;
        }
        return new SubjectPublicKeyInfo(
            new AlgorithmIdentifier(AGREEMENT_512, info.getAlgorithm().getParameters()),
            info.parsePublicKey());
    }

    private static X509CertificateHolder certificate(KeyPair pair, String subject, String kind) throws Exception {
        X500Name name = new X500Name("CN=Castle " + subject);
        Date now = new Date();
        return new X509v3CertificateBuilder(name, BigInteger.valueOf(now.getTime()), new Date(now.getTime() - DAY),
            new Date(now.getTime() + 30 * DAY), name, publicKey(pair, kind))
            .addExtension(Extension.keyUsage, true, new KeyUsage(KeyUsage.digitalSignature))
            .build(new JcaContentSignerBuilder(signature(kind)).setProvider("BC").build(pair.getPrivate()));
    }

    private static byte[] keyStore(String kind, char[] password, String... names) throws Exception {
        KeyStore store = KeyStore.getInstance("PKCS12", "BC");
        store.load(null, null);
        for (String name : names) {
            KeyPair pair = keyPair(kind);
            Certificate certificate =
                new JcaX509CertificateConverter().setProvider("BC").getCertificate(certificate(pair, name, kind));
            store.setKeyEntry(name, pair.getPrivate(), password, new Certificate[] {certificate});
        }
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        store.store(out, password);
        return out.toByteArray();
    }

    private static PrivateKeyInfo privateKey(KeyPair pair, String kind) throws Exception {
        PrivateKeyInfo info = PrivateKeyInfo.getInstance(pair.getPrivate().getEncoded());
        if (!kind.equals("agreement")) {
            return info;
        }
        return new PrivateKeyInfo(
            new AlgorithmIdentifier(AGREEMENT_512, info.getPrivateKeyAlgorithm().getParameters()),
            info.parsePrivateKey());
    }

    private static byte[] pfx(KeyPair pair, X509CertificateHolder holder, String kind, char[] password)
        throws Exception {
        OutputEncryptor encryptor = new JcePKCSPBEOutputEncryptorBuilder(NISTObjectIdentifiers.id_aes256_CBC)
            .setProvider("BC").build(password);
        PKCS12SafeBag key = new PKCS12SafeBagBuilder(privateKey(pair, kind), encryptor).build();
        PKCS12SafeBag certificate = new PKCS12SafeBagBuilder(holder).build();
        PKCS12PfxPdu file = new PKCS12PfxPduBuilder()
            .addData(key)
            .addEncryptedData(encryptor, new PKCS12SafeBag[] {certificate})
            .build(new BcPKCS12MacCalculatorBuilder(new GOST3411Digest(),
                new AlgorithmIdentifier(CryptoProObjectIdentifiers.gostR3411)), password);
        return file.getEncoded();
    }

    public static void main(String[] arguments) throws Exception {
        Security.addProvider(new BouncyCastleProvider());
        String kind = arguments[0];
        char[] password = arguments[2].toCharArray();
        try (FileOutputStream out = new FileOutputStream(arguments[1])) {
            out.write(make(kind, password));
        }
    }

    private static byte[] make(String kind, char[] password) throws Exception {
        if (kind.equals("two")) {
            return keyStore(kind, password, "first", "second");
        }
        if (kind.equals("store") || kind.equals("rsa")) {
            return keyStore(kind, password, kind);
        }
        KeyPair pair = keyPair(kind);
        KeyPair certified = kind.equals("mismatch") ? keyPair(kind) : pair;
        return pfx(pair, certificate(certified, kind, kind), kind, password);
    }
}
