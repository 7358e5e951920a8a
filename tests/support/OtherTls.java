// OpenJDK's SSL 3.0 and TLS as the phone's side of encrypted streams, for tests: an implementation
// that shares nothing with NSS. Each connection to the port that is printed is one stream; what the
// phone's client sends comes in here, and what is to go back goes out.

import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.net.InetAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.ByteBuffer;
import java.security.GeneralSecurityException;
import java.security.KeyFactory;
import java.security.KeyStore;
import java.security.PrivateKey;
import java.security.Security;
import java.security.cert.Certificate;
import java.security.cert.CertificateException;
import java.security.cert.CertificateFactory;
import java.security.cert.X509Certificate;
import java.security.spec.PKCS8EncodedKeySpec;
import java.util.ArrayList;
import java.util.List;
import javax.net.ssl.KeyManagerFactory;
import javax.net.ssl.SSLContext;
import javax.net.ssl.SSLEngine;
import javax.net.ssl.SSLEngineResult;
import javax.net.ssl.SSLException;
import javax.net.ssl.TrustManager;
import javax.net.ssl.X509TrustManager;

public final class OtherTls {
    private static final String[] EARLY_SUITES = {"TLS_RSA_WITH_AES_128_CBC_SHA",
        "SSL_RSA_WITH_3DES_EDE_CBC_SHA", "SSL_RSA_WITH_RC4_128_SHA"};

    public static void main(String[] arguments) throws IOException {
        // What this implementation speaks but refuses to unless it is told.
        Security.setProperty("jdk.tls.disabledAlgorithms", "");
        Security.setProperty("jdk.certpath.disabledAlgorithms", "");
        Security.setProperty("jdk.tls.legacyAlgorithms", "");
        try (ServerSocket server = new ServerSocket(0, 50, InetAddress.getLoopbackAddress())) {
            System.out.println(server.getLocalPort() + " OpenJDK "
                + System.getProperty("java.version") + " " + Security.getProvider("SunJSSE"));
            while (true) {
                Socket socket = server.accept();
                Thread thread = new Thread(() -> serve(socket));
                thread.setDaemon(true);
                thread.start();
            }
        }
    }

    private static void serve(Socket socket) {
        try (socket) {
            socket.setTcpNoDelay(true);
            new OtherTls(socket).run();
        } catch (IOException | GeneralSecurityException end) {
            // The test has no more use for it.
        }
    }

    private final DataInputStream in;
    private final DataOutputStream out;
    private final CertificateFactory certificates;
    private PrivateKey key;
    private Certificate certificate;
    private final List<Certificate> hosts = new ArrayList<>();
    private SSLEngine engine;
    private ByteBuffer received = ByteBuffer.allocate(0); // of the client, not yet understood
    private final ByteArrayOutputStream cipher = new ByteArrayOutputStream(); // to the client
    private final ByteArrayOutputStream plain = new ByteArrayOutputStream();  // from the client
    private int handshakes;
    private String failure = "";

    private OtherTls(Socket socket) throws IOException, GeneralSecurityException {
        in = new DataInputStream(socket.getInputStream());
        out = new DataOutputStream(socket.getOutputStream());
        certificates = CertificateFactory.getInstance("X.509");
    }

    // A letter, a length and as many bytes; the last five are answered.
    private void run() throws IOException, GeneralSecurityException {
        while (true) {
            char kind = (char) in.readUnsignedByte();
            byte[] bytes = in.readNBytes(in.readInt());
            switch (kind) {
                case 'K':
                    key = KeyFactory.getInstance("RSA").generatePrivate(
                        new PKCS8EncodedKeySpec(bytes));
                    break;
                case 'C':
                    certificate = read(bytes);
                    break;
                case 'H':
                    hosts.add(read(bytes));
                    break;
                default:
                    carryOut(kind, bytes);
                    answer();
            }
        }
    }

    private Certificate read(byte[] bytes) throws GeneralSecurityException {
        return certificates.generateCertificate(new ByteArrayInputStream(bytes));
    }

    private void carryOut(char kind, byte[] bytes) throws GeneralSecurityException {
        try {
            switch (kind) {
                case 'S':
                    begin(new String(bytes));
                    break;
                case 'c':
                    understand(bytes);
                    break;
                case 'p':
                    say(ByteBuffer.wrap(bytes));
                    break;
                case 'r':
                    engine.beginHandshake();
                    goOn();
                    break;
                case 'e':
                    engine.closeOutbound();
                    say(ByteBuffer.allocate(0));
                    break;
                default:
                    failure = "unknown order";
            }
        } catch (SSLException | RuntimeException refusal) {
            failure = refusal.toString();
            sayAlert();
        }
    }

    private void begin(String protocol) throws GeneralSecurityException {
        KeyStore store = KeyStore.getInstance("PKCS12");
        try {
            store.load(null, null);
        } catch (IOException impossible) {
            throw new IllegalStateException(impossible);
        }
        char[] password = "password".toCharArray();
        store.setKeyEntry("phone", key, password, new Certificate[] {certificate});
        KeyManagerFactory keys = KeyManagerFactory.getInstance("PKIX");
        keys.init(store, password);
        SSLContext context = SSLContext.getInstance("TLS");
        context.init(keys.getKeyManagers(), new TrustManager[] {new Hosts()}, null);
        engine = context.createSSLEngine();
        engine.setUseClientMode(false);
        engine.setNeedClientAuth(true);
        engine.setEnabledProtocols(new String[] {protocol});
        if (protocol.equals("SSLv3")) {
            engine.setEnabledCipherSuites(EARLY_SUITES);
        }
    }

    private void understand(byte[] bytes) throws SSLException {
        ByteBuffer all = ByteBuffer.allocate(received.remaining() + bytes.length);
        all.put(received).put(bytes).flip();
        received = all;
        goOn();
    }

    // Until more is needed from the client.
    private void goOn() throws SSLException {
        while (true) {
            switch (engine.getHandshakeStatus()) {
                case NEED_TASK:
                    engine.getDelegatedTask().run();
                    break;
                case NEED_WRAP:
                    say(ByteBuffer.allocate(0));
                    break;
                default:
                    if (!unwrap()) {
                        return;
                    }
            }
        }
    }

    private boolean unwrap() throws SSLException {
        ByteBuffer target = ByteBuffer.allocate(engine.getSession().getApplicationBufferSize());
        SSLEngineResult result = engine.unwrap(received, target);
        note(result);
        plain.write(target.array(), 0, target.position());
        boolean needsWork = engine.getHandshakeStatus() == SSLEngineResult.HandshakeStatus.NEED_TASK
            || engine.getHandshakeStatus() == SSLEngineResult.HandshakeStatus.NEED_WRAP;
        if (result.getStatus() == SSLEngineResult.Status.CLOSED) {
            failure = "closed";
            return false;
        }
        return needsWork || (result.getStatus() == SSLEngineResult.Status.OK
            && result.bytesConsumed() > 0);
    }

    private void say(ByteBuffer bytes) throws SSLException {
        do {
            ByteBuffer target = ByteBuffer.allocate(engine.getSession().getPacketBufferSize());
            note(engine.wrap(bytes, target));
            cipher.write(target.array(), 0, target.position());
        } while (bytes.hasRemaining());
    }

    private void sayAlert() {
        try {
            say(ByteBuffer.allocate(0));
        } catch (SSLException | RuntimeException silence) {
            // It has none to say.
        }
    }

    private void note(SSLEngineResult result) {
        if (result.getHandshakeStatus() == SSLEngineResult.HandshakeStatus.FINISHED) {
            ++handshakes;
        }
    }

    private void answer() throws IOException {
        out.writeByte(!failure.isEmpty() ? 'x' : handshakes > 0 ? 'o' : 'h');
        out.writeInt(handshakes);
        write(cipher.toByteArray());
        write(plain.toByteArray());
        String text = !failure.isEmpty() || engine == null ? failure
            : engine.getSession().getProtocol() + ", " + engine.getSession().getCipherSuite();
        write(text.getBytes());
        out.flush();
        cipher.reset();
        plain.reset();
    }

    private void write(byte[] bytes) throws IOException {
        out.writeInt(bytes.length);
        out.write(bytes);
    }

    // Hosts are known by their key, and have their time.
    private final class Hosts implements X509TrustManager {
        @Override
        public void checkClientTrusted(X509Certificate[] chain, String type)
                throws CertificateException {
            chain[0].checkValidity();
            for (Certificate host : hosts) {
                if (host.getPublicKey().equals(chain[0].getPublicKey())) {
                    return;
                }
            }
            throw new CertificateException("not paired with this host");
        }

        @Override
        public void checkServerTrusted(X509Certificate[] chain, String type)
                throws CertificateException {
            throw new CertificateException("this is the server");
        }

        @Override
        public X509Certificate[] getAcceptedIssuers() {
            return new X509Certificate[0];
        }
    }
}
