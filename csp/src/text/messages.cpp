#include "text/messages.hpp"

#include "capi/skipped_entries.hpp"
#include "core/error.hpp"
#include "text/unicode.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

using namespace capi;

constexpr std::array texts{
    ErrorText{ERROR_SUCCESS, "Операция успешно завершена."},
    ErrorText{ERROR_FILE_NOT_FOUND, "Не найдено: такого файла или такого вида данных нет."},
    ErrorText{ERROR_PATH_NOT_FOUND, "Путь не найден: часть его не является каталогом."},
    ErrorText{ERROR_TOO_MANY_OPEN_FILES, "Открыто слишком много файлов."},
    ErrorText{ERROR_ACCESS_DENIED, "Отказано в доступе. Проверьте права на файл или каталог."},
    ErrorText{ERROR_INVALID_HANDLE, "Неверный дескриптор: объект не существует или уже закрыт."},
    ErrorText{ERROR_NOT_ENOUGH_MEMORY, "Недостаточно памяти для выполнения операции."},
    ErrorText{ERROR_INVALID_DATA, "Недопустимые данные."},
    ErrorText{ERROR_NO_MORE_FILES, "Больше нет файлов."},
    ErrorText{ERROR_WRITE_FAULT, "Не удалось записать данные на диск."},
    ErrorText{ERROR_READ_FAULT, "Не удалось прочитать данные с диска."},
    ErrorText{ERROR_SHARING_VIOLATION, "Файл занят другим процессом. Повторите попытку позже."},
    ErrorText{ERROR_NOT_SUPPORTED, "Такая операция не поддерживается."},
    ErrorText{ERROR_INVALID_PARAMETER, "Параметр задан неверно."},
    ErrorText{ERROR_DISK_FULL, "На диске недостаточно места."},
    ErrorText{ERROR_CALL_NOT_IMPLEMENTED, "Эта функция криптографической службой не реализована."},
    ErrorText{ERROR_INSUFFICIENT_BUFFER, "Переданный буфер слишком мал."},
    ErrorText{ERROR_BUSY, "Ресурс занят. Повторите попытку позже."},
    ErrorText{ERROR_MORE_DATA, "Переданный буфер слишком мал: данных больше."},
    ErrorText{ERROR_NO_MORE_ITEMS, "Больше нет элементов."},
    ErrorText{ERROR_MR_MID_NOT_FOUND, "Для этого номера ошибки нет текста сообщения."},
    ErrorText{ERROR_CANCELLED, "Операция отменена пользователем."},
    ErrorText{SCARD_W_WRONG_CHV, "Введён неверный ПИН-код."},
    ErrorText{SCARD_W_CHV_BLOCKED, "Контейнер заблокирован: исчерпано число попыток ввода ПИН-кода."},
    ErrorText{SCARD_W_CANCELLED_BY_USER, "Ввод ПИН-кода отменён пользователем."},
    ErrorText{SCARD_W_CARD_NOT_AUTHENTICATED, "ПИН-код ещё не предъявлен: доступ к ключу закрыт."},
    ErrorText{NTE_BAD_UID, "Неверный контекст криптопровайдера."},
    ErrorText{NTE_BAD_HASH, "Неверный объект хеширования."},
    ErrorText{NTE_BAD_KEY, "Неверный ключ."},
    ErrorText{NTE_BAD_LEN, "Неверная длина данных."},
    ErrorText{NTE_BAD_DATA, "Неверные данные."},
    ErrorText{NTE_BAD_SIGNATURE, "Подпись неверна: данные изменены или подписаны другим ключом."},
    ErrorText{NTE_BAD_VER, "Неверная версия данных или криптопровайдера."},
    ErrorText{NTE_BAD_ALGID, "Указан неизвестный или неподдерживаемый алгоритм."},
    ErrorText{NTE_BAD_FLAGS, "Указаны недопустимые флаги."},
    ErrorText{NTE_BAD_TYPE, "Указан недопустимый тип или параметр."},
    ErrorText{NTE_BAD_KEY_STATE, "Ключ в его нынешнем состоянии использовать нельзя."},
    ErrorText{NTE_BAD_HASH_STATE, "Хеш в его нынешнем состоянии использовать нельзя: вычисление уже завершено."},
    ErrorText{NTE_NO_KEY, "В контейнере нет такого ключа."},
    ErrorText{NTE_NO_MEMORY, "Недостаточно памяти для выполнения криптографической операции."},
    ErrorText{NTE_EXISTS, "Такой контейнер или объект уже существует."},
    ErrorText{NTE_PERM, "Операция не разрешена."},
    ErrorText{NTE_NOT_FOUND, "Объект не найден."},
    ErrorText{NTE_BAD_PROV_TYPE, "Указан недопустимый тип криптопровайдера."},
    ErrorText{NTE_BAD_PUBLIC_KEY, "Открытый ключ неверен."},
    ErrorText{NTE_BAD_KEYSET, "Ключевой контейнер не существует."},
    ErrorText{NTE_PROV_TYPE_NOT_DEF, "Криптопровайдер такого типа не установлен."},
    ErrorText{NTE_KEYSET_NOT_DEF, "Криптопровайдер с таким именем не установлен."},
    ErrorText{NTE_KEYSET_ENTRY_BAD, "Ключевой контейнер повреждён."},
    ErrorText{NTE_PROV_TYPE_NO_MATCH, "Тип криптопровайдера не соответствует его имени."},
    ErrorText{NTE_BAD_KEYSET_PARAM, "Имя или параметр ключевого контейнера неверны."},
    ErrorText{NTE_FAIL, "Внутренняя ошибка криптографической службы."},
    ErrorText{NTE_SILENT_CONTEXT, "Требуется участие пользователя, но контекст открыт без диалогов."},
    ErrorText{CRYPT_E_MSG_ERROR, "Ошибка при обработке криптографического сообщения."},
    ErrorText{CRYPT_E_UNKNOWN_ALGO, "Алгоритм в сообщении или сертификате неизвестен."},
    ErrorText{CRYPT_E_OID_FORMAT, "Идентификатор объекта (OID) записан неверно."},
    ErrorText{CRYPT_E_INVALID_MSG_TYPE, "Сообщение другого типа: операция к нему неприменима."},
    ErrorText{CRYPT_E_UNEXPECTED_ENCODING, "Неожиданная кодировка сообщения."},
    ErrorText{CRYPT_E_AUTH_ATTR_MISSING, "В подписи нет обязательного подписанного атрибута."},
    ErrorText{CRYPT_E_HASH_VALUE, "Значение хеша не совпадает: данные изменены."},
    ErrorText{CRYPT_E_INVALID_INDEX, "Неверный номер элемента в сообщении."},
    ErrorText{CRYPT_E_ALREADY_DECRYPTED, "Содержимое сообщения уже расшифровано."},
    ErrorText{CRYPT_E_NOT_DECRYPTED, "Содержимое сообщения ещё не расшифровано."},
    ErrorText{CRYPT_E_RECIPIENT_NOT_FOUND, "Получателя нет в зашифрованном сообщении."},
    ErrorText{CRYPT_E_CONTROL_TYPE, "Неизвестная операция над сообщением."},
    ErrorText{CRYPT_E_SIGNER_NOT_FOUND, "Подписавший в сообщении не найден."},
    ErrorText{CRYPT_E_ATTRIBUTES_MISSING, "В сообщении нет запрошенных атрибутов."},
    ErrorText{CRYPT_E_STREAM_MSG_NOT_READY, "Сообщение прочитано не полностью: эти сведения ещё недоступны."},
    ErrorText{CRYPT_E_STREAM_INSUFFICIENT_DATA, "Данных сообщения недостаточно: оно обрывается раньше конца."},
    ErrorText{CRYPT_E_BAD_LEN, "Длина данных недопустима."},
    ErrorText{CRYPT_E_BAD_ENCODE, "Значение невозможно закодировать, или оно закодировано неверно."},
    ErrorText{CRYPT_E_FILE_ERROR, "Ошибка при чтении или записи файла хранилища."},
    ErrorText{CRYPT_E_NOT_FOUND, "Объект или свойство не найдены."},
    ErrorText{CRYPT_E_EXISTS, "Объект или свойство уже существуют."},
    ErrorText{CRYPT_E_NO_PROVIDER, "Для этого хранилища или объекта не найден поставщик."},
    ErrorText{CRYPT_E_NO_MATCH, "Подходящих объектов не найдено."},
    ErrorText{CRYPT_E_UNEXPECTED_MSG_TYPE, "Неожиданный тип криптографического сообщения."},
    ErrorText{CRYPT_E_NO_KEY_PROPERTY, "Сертификат не связан с закрытым ключом."},
    ErrorText{CRYPT_E_NO_SIGNER, "Сообщение никем не подписано."},
    ErrorText{CRYPT_E_PENDING_CLOSE, "Хранилище закрыто, но его сертификаты ещё используются."},
    ErrorText{CRYPT_E_REVOKED, "Сертификат отозван."},
    ErrorText{CRYPT_E_NO_REVOCATION_CHECK, "Проверить, не отозван ли сертификат, не удалось."},
    ErrorText{CRYPT_E_REVOCATION_OFFLINE, "Сведений о том, не отозван ли сертификат, нет."},
    ErrorText{CRYPT_E_INVALID_NUMERIC_STRING, "В числовой строке допустимы только цифры и пробел."},
    ErrorText{CRYPT_E_INVALID_PRINTABLE_STRING, "Строка содержит символ, недопустимый в типе PrintableString."},
    ErrorText{CRYPT_E_INVALID_IA5_STRING, "Строка содержит символ не из набора ASCII."},
    ErrorText{CRYPT_E_INVALID_X500_STRING, "Имя X.500 записано неверно."},
    ErrorText{CRYPT_E_ASN1_ERROR, "Ошибка в кодировке ASN.1."},
    ErrorText{CRYPT_E_ASN1_EOD, "Данные ASN.1 неожиданно обрываются."},
    ErrorText{CRYPT_E_ASN1_CORRUPT, "Данные ASN.1 повреждены."},
    ErrorText{CRYPT_E_ASN1_LARGE, "Значение ASN.1 слишком велико."},
    ErrorText{CRYPT_E_ASN1_BADTAG, "Неожиданный тип значения ASN.1."},
    ErrorText{CRYPT_E_ASN1_UTF8, "Строка UTF-8 в данных ASN.1 повреждена."},
    ErrorText{CRYPT_E_ASN1_NOEOD, "После конца данных ASN.1 есть лишние байты."},
    ErrorText{CERT_E_EXPIRED, "Срок действия сертификата истёк или ещё не начался."},
    ErrorText{CERT_E_CRITICAL, "Сертификат содержит критическое расширение, которое не поддерживается."},
    ErrorText{CERT_E_UNTRUSTEDROOT, "Цепочка сертификатов заканчивается корневым сертификатом, которому нет доверия."},
    ErrorText{CERT_E_CHAINING, "Не удалось построить цепочку сертификатов до доверенного корня."},
    ErrorText{CERT_E_REVOKED, "Сертификат отозван издателем."},
    ErrorText{CERT_E_REVOCATION_FAILURE, "Сведения об отзыве сертификата получить не удалось."},
    ErrorText{CERT_E_WRONG_USAGE, "Сертификат не предназначен для этой цели."},
    ErrorText{TRUST_E_EXPLICIT_DISTRUST, "Сертификат внесён в список тех, которым нет доверия."},
    ErrorText{CERT_E_INVALID_POLICY, "Сертификат не отвечает политике, которую требует его издатель."},
    ErrorText{CERT_E_INVALID_NAME, "Имя в сертификате не разрешено ограничениями издателя."},
    ErrorText{TRUST_E_CERT_SIGNATURE, "Подпись издателя на сертификате неверна."},
    ErrorText{TRUST_E_BASIC_CONSTRAINTS, "Нарушены основные ограничения сертификата издателя."},
};

/// 0x8007xxxx carries the number of a system error.
DWORD systemNumber(DWORD code) {
    constexpr DWORD facilityMask = 0xFFFF0000;
    constexpr DWORD facilityWin32 = 0x80070000;
    return (code & facilityMask) == facilityWin32 ? code & ~facilityMask : code;
}

} // namespace

std::span<const ErrorText> errorTexts() noexcept {
    return texts;
}

std::string errorMessage(DWORD code) {
    const auto* const found = std::ranges::find(texts, systemNumber(code), &ErrorText::code);
    const auto text = found == texts.end() ? std::nullopt : cp1251FromUtf8(found->text);
    if (!text) {
        fail(ERROR_MR_MID_NOT_FOUND);
    }
    return *text + "\r\n";
}

} // namespace klunortredi::csp
